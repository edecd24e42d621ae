// Replies of the server: RFC 5321, section 4.2.

#include <cstring>

#include "netlib/netsmtp.h"
#include "utils/etc/utascii.h"

namespace {

constexpr int most_reply_lines = 1000;  // a server that says more would fill the host's memory
constexpr size_t prefix_length = 4;     // three digits, then a blank or, before more lines, "-"

a_bool is_reply_line(const char* line, size_t length) {
    if (length < prefix_length) return false;
    for (int i = 0; i < 3; ++i) {
        if (line[i] < '0' || line[i] > '9') return false;
    }
    return line[3] == ' ' || line[3] == '-';
}

int reply_code(const char* line) {
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

// The length of a reply line's text without its end: up to the first CR or else LF, a zero byte
// ending it anyway.
size_t text_length(const char* text, size_t length) {
    length = strnlen(text, length);
    const void* end = std::memchr(text, '\r', length);
    if (end == nullptr) end = std::memchr(text, '\n', length);
    return end == nullptr ? length : static_cast<size_t>(static_cast<const char*>(end) - text);
}

}  // namespace

int SMTPClient::a_reply::judged(int result, int expected, int unexpected) const {
    if (result != SMTP_OK) return result;
    return code == expected ? SMTP_OK : unexpected;
}

int SMTPClient::_ProcessResponse(a_reply& reply, a_bool is_ehlo) {
    if (is_ehlo) _ehlo_responses.clear();
    const SMTPSocket::Reply timing(_socket);
    for (int lines = 0; lines < most_reply_lines; ++lines) {
        const size_t length = _ReadLine(reply.line, sizeof reply.line);
        // Before what was read: a line that was cut short by the time-out says nothing.
        if (_socket.didTimeout() || _socket.isReplyOverdue()) return SMTP_TIMED_OUT;
        if (!is_reply_line(reply.line, length)) return SMTP_BAD_REPLY;
        reply.code = reply_code(reply.line);
        const char* const text = reply.line + prefix_length;
        if (is_ehlo && !_ehlo_responses.add(text, text_length(text, length - prefix_length)))
            return SMTP_NO_MEMORY;
        if (reply.line[3] == ' ') return SMTP_OK;
    }
    return SMTP_BAD_REPLY;
}

size_t SMTPClient::_ReadLine(char* buf, size_t buflen) {
    size_t count = 0;
    if (buflen > 0) buf[0] = '\0';
    while (count < buflen) {
        // What has arrived behind the line stays with the stream until the next line is wanted; so
        // a read that may wait takes a byte only.
        size_t got = _istrm != nullptr ? _istrm->get_held_line(buf + count, buflen - count) : 0;
        if (got == 0) got = _recvData(buf + count, 1);
        if (got == 0) {
            if (_istrm == nullptr || _istrm->eof() || _socket.didTimeout()) break;
            continue;
        }
        count += got;
        if (buf[count - 1] != '\n') continue;
        // A line that fills the buffer has no terminator: its length is what counts.
        if (count < buflen) buf[count] = '\0';
        break;
    }
    return count;
}

const char* SMTPClient::FindServerCapability(const char* name) const {
    const size_t length = std::strlen(name);
    for (const char* response : _ehlo_responses) {
        if (ut_equal_nocase(response, name, length)) return response;
    }
    return nullptr;
}
