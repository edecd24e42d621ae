#ifndef QUOREL_PROVIDERS_OPENSSL_IPADDRESS_H
#define QUOREL_PROVIDERS_OPENSSL_IPADDRESS_H

#include <cstddef>
#include <cstring>

#include <arpa/inet.h>

/// True for what the system takes for an IP address, unusual notations such as "127.1" included.
inline bool is_ip_address(const char* name) {
    in_addr ignored;
    return std::strchr(name, ':') != nullptr || inet_aton(name, &ignored) != 0;
}

struct an_ip_address {
    unsigned char bytes[16];  // in network order
    size_t size;              // 4 or 16; 0: none
};

/// Reads the usual notations (inet_pton(3)).
inline an_ip_address read_ip_address(const char* name) {
    an_ip_address address = {};
    if (inet_pton(AF_INET, name, address.bytes) == 1) {
        address.size = 4;
    } else if (inet_pton(AF_INET6, name, address.bytes) == 1) {
        address.size = 16;
    }
    return address;
}

#endif
