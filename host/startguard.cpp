#include <arpa/inet.h>
#include <netinet/in.h>

#include "host/mailguards.h"
#include "host/text.h"

namespace host {

namespace {

// True only for what certainly is this machine: "localhost", 127.0.0.0/8 in four decimal parts,
// ::1, and the former written as ::ffff:127.0.0.1. Not for other spellings that a resolver would
// understand ("127.1", "2130706433", "localhost."): what is doubtful is another machine.
bool is_loopback(std::string_view host) {
    if (same_name(host, "localhost")) return true;
    const std::string text(host);
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

// True for a name as certificates carry it: letters, digits, "-" and "_" between dots, and no
// address in any spelling.
bool is_host_name(std::string_view host) {
    constexpr std::string_view letters =
        "-_.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    if (host.empty() || host.find_first_not_of(letters) != std::string_view::npos) return false;
    // It reads one to four decimal, octal or hexadecimal parts, as a resolver does.
    in_addr address{};
    return inet_aton(std::string(host).c_str(), &address) == 0;
}

// With two zero bytes, so many are 512 characters of base64, behind which the library breaks the
// line.
constexpr std::size_t credential_limit = 380;

Refused guard_login(const CallArguments& arguments) {
    const CallArguments::Bytes& user = arguments[start_username];
    const CallArguments::Bytes& password = arguments[start_password];
    if (!user || !password) return std::nullopt;
    // Broken into two lines it would be no login to the server.
    if (user->size() + password->size() >= credential_limit)
        return Refusal{start_password,
                       "and the user's name are too long for a login: together they "
                       "take less than " +
                           std::to_string(credential_limit) + " bytes"};
    const bool stays_secret = arguments[start_trusted_cert] || is_loopback(*arguments[start_host]);
    if (stays_secret || arguments.is_on(start_plaintext).value_or(false)) return std::nullopt;
    return Refusal{
        start_password,
        "would cross the network in the clear; give trusted_cert, which asks for TLS, or "
        "set allow_plaintext_auth to let it"};
}

// The name as a certificate spells it; empty for what no certificate names.
std::string certificate_name(std::string_view host) {
    // The dot that ends a complete name stands in no certificate.
    if (host.ends_with('.')) host.remove_suffix(1);
    return is_host_name(host) ? std::string(host) : std::string();
}

Refused guard_certificate(CallArguments& arguments, std::string& warning) {
    if (!arguments[start_trusted_cert]) return std::nullopt;
    const CallArguments::Bytes& name = arguments[start_name];
    if (name && !name->empty()) return std::nullopt;
    if (name) {
        // To the library it would be a name to look for.
        arguments.set_null(start_name);
        warning = "cert_name is empty: any server with a certificate that trusted_cert vouches for "
                  "can pass for " +
                  std::string(*arguments[start_host]);
        return std::nullopt;
    }
    std::string expected = certificate_name(*arguments[start_host]);
    if (expected.empty())
        return Refusal{start_name, "is missing, and the host is no name that a certificate could "
                                   "carry; give the name in the server's certificate, or an empty "
                                   "text to have none checked"};
    arguments.own(start_name, std::move(expected));
    return std::nullopt;
}

}  // namespace

Refused guard_start(CallArguments& arguments, std::string& warning) {
    // Without a host nothing is opened.
    if (!arguments[start_host]) return std::nullopt;
    const Refused refused = guard_login(arguments);
    return refused ? refused : guard_certificate(arguments, warning);
}

}  // namespace host
