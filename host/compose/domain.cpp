#include <algorithm>
#include <memory>

#include <arpa/inet.h>
#include <idn2.h>

#include "host/compose/address.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::size_t longest_domain = 253;
constexpr std::size_t longest_label = 63;

bool is_label(std::string_view label) {
    return !label.empty() && label.size() <= longest_label && label.front() != '-' &&
           label.back() != '-' && std::ranges::all_of(label, [](char c) {
               return is_letter(c) || is_digit(c) || c == '-';
           });
}

// RFC 5321, section 4.1.2.
bool is_domain(std::string_view domain) {
    if (domain.size() > longest_domain) return false;
    for (;;) {
        const std::size_t dot = domain.find('.');
        if (!is_label(domain.substr(0, dot))) return false;
        if (dot == std::string_view::npos) return true;
        domain.remove_prefix(dot + 1);
    }
}

// RFC 5321, section 4.1.3.
bool is_address_literal(std::string_view domain) {
    if (!domain.ends_with(']')) return false;
    std::string literal(domain.substr(1, domain.size() - 2));
    constexpr std::string_view tag = "IPv6:";
    const bool v6 = same_name(std::string_view(literal).substr(0, tag.size()), tag);
    if (v6) literal.erase(0, tag.size());
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(v6 ? AF_INET6 : AF_INET, literal.c_str(), address) == 1;
}

struct FreeIdn {
    void operator()(char* text) const { idn2_free(text); }
};

bool to_a_labels(std::string_view domain, std::string& ascii, std::string& error) {
    char* found = nullptr;
    const int result = idn2_to_ascii_8z(std::string(domain).c_str(), &found,
                                        IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
    const std::unique_ptr<char, FreeIdn> owned(found);
    if (result != IDN2_OK) {
        error = "has a domain that is none: " + std::string(idn2_strerror(result));
        return false;
    }
    ascii = found;
    return true;
}

}  // namespace

bool read_domain(std::string_view domain, std::string& ascii, std::string& error) {
    if (domain.empty()) {
        error = "has nothing behind the @";
        return false;
    }
    ascii = domain;
    if (domain.front() == '[') {
        if (is_address_literal(domain)) return true;
        error = "has no address of a machine between [ and ]";
        return false;
    }
    if (!std::ranges::all_of(domain, is_ascii) && !to_a_labels(domain, ascii, error)) return false;
    // What the mapping of other scripts gave is looked at, too: a fullwidth @ becomes an @.
    if (is_domain(ascii)) return true;
    error = "has a domain that is none; it has labels of letters, digits and hyphens with a dot "
            "between";
    return false;
}

}  // namespace host
