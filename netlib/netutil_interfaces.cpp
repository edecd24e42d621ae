#include <cstring>
#include <memory>
#include <new>

#include "netlib/netutil.h"
#include "netlib/netutil_state.h"
#include "netlib/unix_nilist.h"

/// Questions about the host's interfaces, answered from the list that is read once and kept.

namespace {

using TcpUtil::a_ni_reading;

/// Null on failure.
std::unique_ptr<a_ni_reading> read_interfaces() {
    std::unique_ptr<a_ni_reading> reading(new (std::nothrow) a_ni_reading());
    if (reading == nullptr) return nullptr;
    if (!TcpUtil::_InternalGetNIList(reading->list, reading->count)) return nullptr;
    return reading;
}

a_bool same_reading(const a_ni_reading& a, const a_ni_reading& b) {
    if (a.count != b.count) return false;
    const NetworkInterface* left = a.list.get_first();
    const NetworkInterface* right = b.list.get_first();
    for (; left != nullptr; left = a.list.next(left), right = b.list.next(right)) {
        if (!left->isSameEntry(*right)) return false;
    }
    return true;
}

/// The first interface for which `wanted` holds; null when there is none.
template <class Predicate>
const NetworkInterface* find_interface(Predicate wanted) {
    NetworkInterface_list* const list = TcpUtil::GetNIList(nullptr);
    if (list == nullptr) return nullptr;
    for (NetworkInterface_iter iter(*list); !iter.is_past(); iter.next()) {
        if (wanted(*iter.get())) return iter.get();
    }
    return nullptr;
}

}  // namespace

namespace TcpUtil {

a_ni_reading::~a_ni_reading() {
    list.delete_all();
}

NetworkInterface_list* GetNIList(unsigned long* count) {
    const UTLock lock(NICritSect.p_mutex);
    if (!lock.is_held()) return nullptr;
    if (NIList.is_empty()) {
        std::unique_ptr<a_ni_reading> reading = read_interfaces();
        if (reading == nullptr) return nullptr;  // the next call tries again
        NIList.append(reading.release());
    }
    a_ni_reading* const current = NIList.get_last();
    if (count != nullptr) *count = current->count;
    return &current->list;
}

a_bool UpdateNIList() {
    const UTLock lock(NICritSect.p_mutex);
    if (!lock.is_held()) return false;
    std::unique_ptr<a_ni_reading> reading = read_interfaces();
    if (reading == nullptr) return false;
    // Behind the former one, which stays: others may be walking through it.
    if (NIList.is_empty() || !same_reading(*NIList.get_last(), *reading)) {
        NIList.append(reading.release());
    }
    return true;
}

const NetworkInterface* FindInterfaceByIPAddress(const IPAddress& ip) {
    return find_interface(
        [&](const NetworkInterface& entry) { return entry.getIPAddress().sameIPAddress(ip); });
}

const NetworkInterface* _find_interface_by_name(const char* name) {
    if (name == nullptr) return nullptr;
    return find_interface(
        [=](const NetworkInterface& entry) { return std::strcmp(entry.getName(), name) == 0; });
}

a_bool IsLocalIPAddress(const IPAddress& ip) {
    return FindInterfaceByIPAddress(ip) != nullptr;
}

a_bool IsLocalIPAddress(const sockaddr_storage* sa, socklen_t salen) {
    return IsLocalIPAddress(IPAddress(sa, salen));
}

a_bool IsLocalIPAddress(const char* text) {
    return IsLocalIPAddress(IPAddress(text));
}

}  // namespace TcpUtil
