#include "netlib/netutil_site.h"

#include <cstring>

#include <fcntl.h>

#include "netlib/netutil.h"
#include "utils/etc/utascii.h"
#include "utils/unix/posixio.h"
#include "utils/unix/utdescriptor.h"

/// Whether this host sits in the site's own network.

namespace {

constexpr const char* resolver_config = "/etc/resolv.conf";

const char* internal_domain = nullptr;
const char* internal_probe_host = nullptr;

a_bool is_set(const char* text) {
    return text != nullptr && *text != '\0';
}

/// The start of a file, as text.
struct a_file_start {
    explicit a_file_start(const char* path) {
        const UTDescriptor file(_posix_open(path, O_RDONLY, 0));
        if (!file.is_open()) return;
        const ssize_t length = _posix_read(file.get(), text, sizeof text - 1);
        if (length > 0) text[length] = '\0';
    }
    char text[4096 + 1] = {};
};

a_bool ends_name(const char* at) {
    if (*at == '.') ++at;
    return std::strchr(" \t\r\n", *at) != nullptr;  // finds the terminator too
}

a_bool any_private_interface() {
    NetworkInterface_list* const list = TcpUtil::GetNIList(nullptr);
    if (list == nullptr) return false;
    for (NetworkInterface_iter iter(*list); !iter.is_past(); iter.next()) {
        if (iter.get()->getIPAddress().isPrivateNet()) return true;
    }
    return false;
}

}  // namespace

namespace TcpUtil {

a_bool _ConfigNamesDomain(const char* path, const char* domain) {
    if (!is_set(domain)) return false;
    const size_t length = std::strlen(domain);
    const a_file_start config(path);
    for (const char* at = config.text; *at != '\0'; ++at) {
        if (ut_equal_nocase(at, domain, length) && ends_name(at + length)) return true;
    }
    return false;
}

void SetInternalNetwork(const char* domain, const char* probe_host) {
    internal_domain = domain;
    internal_probe_host = probe_host;
}

a_bool IsOnInternalNetwork() {
    return _ConfigNamesDomain(resolver_config, internal_domain);
}

a_bool IsOnInternalNetwork_Ex() {
    if (!is_set(internal_probe_host) || !any_private_interface()) return IsOnInternalNetwork();
    IPAddress probe;
    return Resolve(internal_probe_host, probe, ADDR_BOTH);
}

}  // namespace TcpUtil
