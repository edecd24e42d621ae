#include "netlib/netutil.h"

#include "netlib/netcalls.h"
#include "netlib/netutil_state.h"
#include "utils/unix/utlasting.h"

namespace TcpUtil {

a_critical_sect ThreadCritSect;
a_critical_sect NICritSect;

namespace {

/// Loads what TcpUtil stands on: the locks, the interface list and NetInterface.
class TcpUtilSingleton : public DLLLoadingMonitor {
  public:
    /// Unloads what is still loaded, so that unloading the library leaves nothing behind (see
    /// UTLasting for when that is).
    ~TcpUtilSingleton() override;

  protected:
    void _clear() override;
    a_bool _do_load() override;
    void _do_unload() override;
};

a_critical_sect SingletonCritSect;

a_critical_sect* const all_locks[] = {&ThreadCritSect, &NICritSect, &SingletonCritSect};
uint32 pending_fini = 0;  // guarded by SingletonCritSect

// Before the singleton, whose destructor needs them.
UTLasting<c_utils_list<a_ni_reading>> interface_list;
UTLasting<NetInterface> net_interface;
UTLasting<TcpUtilSingleton> singleton;

void destroy_locks() {
    for (a_critical_sect* lock : all_locks) ut_safe_pthread_mutex_destroy(lock);
}

a_bool create_locks() {
    for (a_critical_sect* lock : all_locks) {
        if (ut_safe_pthread_mutex_init(lock, nullptr) == 0) continue;
        destroy_locks();  // those that were not made are null, and passed over
        return false;
    }
    return true;
}

a_bool take_pending_fini() {
    const UTLock lock(SingletonCritSect.p_mutex);
    if (!lock.is_held() || pending_fini == 0) return false;
    --pending_fini;
    return true;
}

TcpUtilSingleton::~TcpUtilSingleton() {
    if (_count == 0) return;
    _count = 0;
    // By the class's name: a destructor reaches no overrides.
    TcpUtilSingleton::_do_unload();
    TcpUtilSingleton::_clear();
}

a_bool TcpUtilSingleton::_do_load() {
    if (!create_locks()) return false;
    if (net_interface->init()) return true;
    destroy_locks();
    return false;
}

void TcpUtilSingleton::_do_unload() {
    NIList.delete_all();
    net_interface->fini();
    destroy_locks();
}

void TcpUtilSingleton::_clear() {
    pending_fini = 0;
}

}  // namespace

c_utils_list<a_ni_reading>& NIList = *interface_list;

a_bool Init() {
    if (!singleton->init()) return false;
    const UTLock lock(SingletonCritSect.p_mutex);
    ++pending_fini;
    return true;
}

// The lock goes with the last fini(), so it is not held over it.
void Fini() {
    if (take_pending_fini()) singleton->fini();
}

a_bool IsIPv6Supported() {
    return net_interface->isIPv6Supported();
}

}  // namespace TcpUtil
