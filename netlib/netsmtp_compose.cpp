// The text of a message: header (RFC 5322) and text part (RFC 2045 to 2047).
//
// Kept: there is no Date line, and in a multipart message no empty line between the header and the
// first boundary.

#include <cstdio>
#include <cstring>

#include "netlib/netsmtp.h"
#include "quorelversion.h"
#include "utils/etc/utascii.h"
#include "utils/locale/utlocale.h"

namespace {

void append_addresses(Buffer& message, const char* field, const char** addresses, int count) {
    if (count <= 0) return;
    message.append_all({field, addresses[0]});
    for (int i = 1; i < count; ++i) message.append_all({",", addresses[i]});
    message.append("\r\n");
}

a_bool is_ascii(const char* text) {
    for (; *text != '\0'; ++text) {
        if ((static_cast<a_byte>(*text) & 0x80) != 0) return false;
    }
    return true;
}

// One encoded word (RFC 2047) of every byte.
// Kept: plain letters are encoded too, the digits are lower-case, and the word is never folded.
void append_encoded_word(Buffer& message, const char* text) {
    message.append_all({"=?", ls_os_charset_label(), "?q?"});
    for (; *text != '\0'; ++text) {
        char encoded[4];
        std::snprintf(encoded, sizeof encoded, "=%02x", static_cast<a_byte>(*text));
        message.append(encoded);
    }
    message.append("?=");
}

void append_subject(Buffer& message, const char* subject) {
    if (subject == nullptr) return;
    message.append("Subject: ");
    if (is_ascii(subject)) {
        message.append(subject);
    } else {
        append_encoded_word(message, subject);
    }
    message.append("\r\n");
}

void append_part_header(Buffer& message, const char* content_type) {
    constexpr char own_header[] = "asis";
    if (content_type == nullptr) {
        message.append_all({"Content-Type: text/plain; charset=", ls_os_charset_label(), "\r\n"});
    } else if (ut_equal_nocase(content_type, own_header, sizeof own_header - 1)) {
        return;
    } else {
        message.append_all({"Content-Type: ", content_type, ";\r\n"});
    }
    message.append("Content-Disposition: inline;\r\n\r\n");
}

}  // namespace

const char external_library_name[] = "Corvane External Library " QUOREL_VERSION "." QUOREL_BUILD;

char* SMTPClient::_ComposeMessage(const char* subject, const char* body, const char** to,
                                  int to_count, const char** cc, int cc_count, const char* boundary,
                                  const char* content_type) {
    constexpr size_t usual_header_length = 500;
    Buffer message;
    message.expect(usual_header_length + (body != nullptr ? std::strlen(body) : 0));
    message.append("From: ");
    if (_sender_name != nullptr) {
        message.append_all({_sender_name.get(), " <", _sender.get(), ">\r\n"});
    } else {
        message.append_all({_sender.get(), "\r\n"});
    }
    append_addresses(message, "To: ", to, to_count);
    append_addresses(message, "Cc: ", cc, cc_count);
    append_subject(message, subject);
    message.append_all({"X-Mailer: ", external_library_name, "\r\n"});
    // Kept: without a body there are no MIME headers, not even for an attachment that follows.
    if (body != nullptr) {
        message.append("MIME-Version: 1.0\r\n");
        if (boundary != nullptr) {
            message.append_all({"Content-Type: multipart/mixed; boundary=\"", boundary, "\";\r\n--",
                                boundary, "\r\n"});
        }
        append_part_header(message, content_type);
        message.append(body);
    }
    message.append("\r\n");
    return message.release();
}
