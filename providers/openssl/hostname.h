#ifndef QUOREL_PROVIDERS_OPENSSL_HOSTNAME_H
#define QUOREL_PROVIDERS_OPENSSL_HOSTNAME_H

#include <cstddef>

/// True for a name that can stand in the server name indication (RFC 6066 section 3): labels of
/// letters, digits and hyphens (RFC 5890 section 2.3.1), no dot at the end, no IP address.
bool is_host_name(const char* name);

/// True for what the system takes for an IP address, unusual notations such as "127.1" included.
bool is_ip_address(const char* name);

struct an_ip_address {
    unsigned char bytes[16];  // in network order
    size_t size;              // 4 or 16; 0: none
};

/// Reads the usual notations (inet_pton(3)).
an_ip_address read_ip_address(const char* name);

#endif
