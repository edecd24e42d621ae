#include "host/hostname.h"

#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "host/text.h"

namespace host {

bool is_loopback(std::string_view host) {
    if (same_name(host, "localhost")) return true;
    const std::string text(host);
    // A zero byte would hide what stands behind it.
    if (text.size() != strlen(text.c_str())) return false;
    constexpr unsigned char loopback_net = 127;
    in_addr four{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1)
        return reinterpret_cast<const unsigned char*>(&four)[0] == loopback_net;
    in6_addr six{};
    if (inet_pton(AF_INET6, text.c_str(), &six) != 1) return false;
    constexpr std::size_t mapped_address = 12;
    return IN6_IS_ADDR_LOOPBACK(&six) ||
           (IN6_IS_ADDR_V4MAPPED(&six) && six.s6_addr[mapped_address] == loopback_net);
}

bool is_host_name(std::string_view host) {
    constexpr std::string_view letters =
        "-_.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    if (host.empty() || host.find_first_not_of(letters) != std::string_view::npos) return false;
    // It reads one to four decimal, octal or hexadecimal parts, as a resolver does.
    in_addr address{};
    return inet_aton(std::string(host).c_str(), &address) == 0;
}

}  // namespace host
