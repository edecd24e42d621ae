#include "providers/openssl/hostname.h"

#include <cstring>

#include <arpa/inet.h>

namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_label(const char* label, size_t len) {
    if (len == 0 || len > 63 || label[0] == '-' || label[len - 1] == '-') return false;
    for (size_t i = 0; i < len; ++i) {
        if (!is_letter(label[i]) && !is_digit(label[i]) && label[i] != '-') return false;
    }
    return true;
}

}  // namespace

bool is_host_name(const char* name) {
    if (std::strlen(name) > 253) return false;
    const char* last = name;
    for (const char* dot; (dot = std::strchr(last, '.')) != nullptr; last = dot + 1) {
        if (!is_label(last, static_cast<size_t>(dot - last))) return false;
    }
    // No top-level domain consists of digits, but every dotted IPv4 address ends in them.
    return is_label(last, std::strlen(last)) && last[std::strspn(last, "0123456789")] != '\0';
}

bool is_ip_address(const char* name) {
    in_addr ignored;
    return std::strchr(name, ':') != nullptr || inet_aton(name, &ignored) != 0;
}

an_ip_address read_ip_address(const char* name) {
    an_ip_address address = {};
    if (inet_pton(AF_INET, name, address.bytes) == 1) {
        address.size = 4;
    } else if (inet_pton(AF_INET6, name, address.bytes) == 1) {
        address.size = 16;
    }
    return address;
}
