#include "host/outbox/servicemanager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

#include "host/descriptor.h"

namespace host::outbox {

void tell_service_manager(std::string_view change) {
    const char* path = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    const std::size_t length = path == nullptr ? 0 : strlen(path);
    if (length < 2 || length >= sizeof address.sun_path || (*path != '/' && *path != '@')) return;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, length);
    if (*path == '@') address.sun_path[0] = '\0';  // unix(7): an abstract name
    const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sender.is_open()) return;
    static_cast<void>(sendto(sender.number(), change.data(), change.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address),
                             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)));
}

}  // namespace host::outbox
