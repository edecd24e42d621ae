#include "host/mailguards.h"

#include <atomic>
#include <new>

#include "host/hostname.h"
#include "host/lineends.h"

namespace host {

namespace {

using Refused = std::optional<Refusal>;

std::atomic<bool> raw_by_default{false};

// With two zero bytes, so many are 512 characters of base64, behind which the library breaks the
// line.
constexpr std::size_t credential_limit = 380;

Refused guard_login(const CallArguments& arguments) {
    const CallArguments::Bytes& user = arguments[start_username];
    const CallArguments::Bytes& password = arguments[start_password];
    if (!user || !password) return std::nullopt;
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
    if (host.ends_with('.')) host.remove_suffix(1);
    return is_host_name(host) ? std::string(host) : std::string();
}

Refused guard_certificate(CallArguments& arguments, std::string& warning) {
    if (!arguments[start_trusted_cert]) return std::nullopt;
    const CallArguments::Bytes& name = arguments[start_name];
    if (name && !name->empty()) return std::nullopt;
    if (name) {
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

Refused use_crlf(CallArguments& arguments) {
    const std::string_view message = *arguments[mail_message];
    const std::uint64_t length = length_with_crlf(message);
    if (length == message.size()) return std::nullopt;
    if (length > UINT32_MAX)
        return Refusal{mail_message, "takes less than 4 GiB, counting CRLF for each line end"};
    const auto size = static_cast<std::size_t>(length);
    std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
    if (text == nullptr)
        return Refusal{mail_message, "is too long: there is no memory to make its line ends CRLF"};
    copy_with_crlf(message, text.get());
    arguments.own(mail_message, std::move(text), size);
    return std::nullopt;
}

}  // namespace

Refused guard_start(CallArguments& arguments, std::string& warning) {
    // Without a host nothing is opened.
    if (!arguments[start_host]) return std::nullopt;
    const Refused refused = guard_login(arguments);
    return refused ? refused : guard_certificate(arguments, warning);
}

Refused guard_message(CallArguments& arguments, std::string& /*warning*/) {
    // Without any text a message gets no parts, and the file would be a part of none.
    if (arguments[mail_file] && !arguments[mail_message]) arguments.own(mail_message, "");
    if (!arguments[mail_message]) return std::nullopt;
    // How the line begins that the library puts between the text and the file.
    constexpr std::string_view boundary = "--==_EMAIL_MIME_";
    if (arguments[mail_file] && has_line_with(*arguments[mail_message], boundary))
        return Refusal{mail_message, "takes no line that begins with " + std::string(boundary) +
                                         " beside include_file: it would end the text and begin an "
                                         "attachment; put a blank before it"};
    if (arguments.is_on(mail_raw).value_or(raw_by_default)) return std::nullopt;
    return use_crlf(arguments);
}

void send_raw_by_default(bool raw) {
    raw_by_default = raw;
}

}  // namespace host
