#include <atomic>
#include <new>

#include "host/mailguards.h"

namespace host {

namespace {

std::atomic<bool> raw_by_default{false};

// Calls `put` for each byte of `text` with CRLF for each CR and each LF that stands alone: neither
// may in mail (RFC 5322, section 2.3).
template <typename Put>
void put_with_crlf(std::string_view text, const Put& put) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' || text[i] == '\n') {
            put('\r');
            put('\n');
            if (text.substr(i, 2) == "\r\n") ++i;
        } else {
            put(text[i]);
        }
    }
}

std::uint64_t length_with_crlf(std::string_view text) {
    std::uint64_t length = 0;
    put_with_crlf(text, [&length](char) { ++length; });
    return length;
}

// Writes length_with_crlf() bytes.
void copy_with_crlf(std::string_view text, char* to) {
    put_with_crlf(text, [&to](char byte) { *to++ = byte; });
}

// A line begins behind a CR or LF, too, that stands alone: a mail server may take it for a line
// end.
bool has_line_with(std::string_view text, std::string_view mark) {
    for (std::size_t at = text.find(mark); at != std::string_view::npos;
         at = text.find(mark, at + 1))
        if (at == 0 || text[at - 1] == '\r' || text[at - 1] == '\n') return true;
    return false;
}

Refused use_crlf(CallArguments& arguments) {
    const std::string_view message = *arguments[mail_message];
    const std::uint64_t length = length_with_crlf(message);
    if (length <= message.size()) return std::nullopt;  // nothing to add
    if (length > UINT32_MAX)
        return Refusal{mail_message, "takes less than 4 GiB, counting CRLF for each line end"};
    const auto size = static_cast<std::size_t>(length);
    // A message may be as large as half of a 32-bit process; a std::string would end its program.
    std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
    if (text == nullptr)
        return Refusal{mail_message, "is too long: there is no memory to make its line ends CRLF"};
    copy_with_crlf(message, text.get());
    arguments.own(mail_message, std::move(text), size);
    return std::nullopt;
}

}  // namespace

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
