// Replies of the server: RFC 5321, section 4.2.

#include <algorithm>
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

// The text of a reply line without its end: up to the first CR or else LF, a zero byte ending it
// anyway. Null when there is no memory.
char* copy_reply_text(const char* line, size_t length) {
    const char* const text = line + prefix_length;
    size_t size = strnlen(text, length - prefix_length);
    const void* end = std::memchr(text, '\r', size);
    if (end == nullptr) end = std::memchr(text, '\n', size);
    if (end != nullptr) size = static_cast<size_t>(static_cast<const char*>(end) - text);
    auto* const copy = static_cast<char*>(ut_malloc(size + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, size);
    copy[size] = '\0';
    return copy;
}

}  // namespace

int SMTPClient::_ProcessResponse(char* buf, size_t buflen, int* code, a_bool is_ehlo) {
    if (is_ehlo) _DeleteEhloResponses();
    if (buf == nullptr) return SMTP_NO_MEMORY;
    _socket.beginReply();
    for (int lines = 0; lines < most_reply_lines; ++lines) {
        const size_t length = _ReadLine(buf, buflen);
        if (_socket.didTimeout() || _socket.isReplyOverdue()) return SMTP_TIMED_OUT;
        if (!is_reply_line(buf, length)) return SMTP_BAD_REPLY;
        *code = reply_code(buf);
        if (is_ehlo && !_AddEhloResponse(buf, length)) return SMTP_NO_MEMORY;
        if (buf[3] == ' ') return SMTP_OK;
    }
    return SMTP_BAD_REPLY;
}

size_t SMTPClient::_ReadLine(char* buf, size_t buflen) {
    size_t count = 0;
    if (buflen > 0) buf[0] = '\0';
    while (count < buflen) {
        if (_recvData(buf + count, 1) == 0) {
            if (_istrm == nullptr || _istrm->eof() || _socket.didTimeout()) break;
            continue;
        }
        if (buf[count++] != '\n') continue;
        if (count < buflen) buf[count] = '\0';
        break;
    }
    return count;
}

// Not with ut_realloc, which ends the process where there is no memory. False then.
a_bool SMTPClient::_AddEhloResponse(const char* line, size_t length) {
    size_t count = 0;
    while (_ehlo_responses != nullptr && _ehlo_responses[count] != nullptr) ++count;
    auto** const grown = static_cast<char**>(ut_calloc((count + 2) * sizeof(char*)));
    if (grown == nullptr) return false;
    std::copy_n(_ehlo_responses, count, grown);
    ut_free(_ehlo_responses);
    _ehlo_responses = grown;
    grown[count] = copy_reply_text(line, length);
    return grown[count] != nullptr;
}

void SMTPClient::_DeleteEhloResponses() {
    if (_ehlo_responses == nullptr) return;
    for (char** entry = _ehlo_responses; *entry != nullptr; ++entry) ut_free(*entry);
    ut_free(_ehlo_responses);
    _ehlo_responses = nullptr;
}

const char* SMTPClient::FindServerCapability(const char* name) const {
    if (_ehlo_responses == nullptr) return nullptr;
    const size_t length = std::strlen(name);
    for (char** entry = _ehlo_responses; *entry != nullptr; ++entry) {
        if (ut_equal_nocase(*entry, name, length)) return *entry;
    }
    return nullptr;
}
