// Logging in: AUTH (RFC 4954) with the PLAIN mechanism (RFC 4616) and its initial response.

#include <cstring>

#include "netlib/netsmtp.h"
#include "utils/etc/base64.h"
#include "utils/utmem/utwipe.h"

namespace {

constexpr size_t line_length = 512;

/// Memory for secrets, overwritten before it is freed.
class SecretBytes {
  public:
    explicit SecretBytes(size_t size) : _size(size), _bytes(static_cast<char*>(ut_malloc(size))) {}
    ~SecretBytes() {
        if (_bytes != nullptr) ut_wipe(_bytes, _size);
        ut_free(_bytes);
    }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    char* bytes() const { return _bytes; }  // null when there was no memory

  private:
    size_t _size;
    char* _bytes;  // owned
};

// Characters that base64 makes of `length` bytes in lines of line_length, with a terminator.
size_t encoded_size(size_t length) {
    const size_t characters = (length + 2) / 3 * 4;
    return characters + characters / line_length * 2 + 1;
}

// Appends [authorisation identity] NUL user NUL password, encoded. False without memory.
// Kept: a credential of more than 512 characters gets a line break inside.
a_bool append_credential(Buffer& line, const char* user, const char* password) {
    const size_t user_length = std::strlen(user);
    const size_t password_length = std::strlen(password);
    const size_t length = user_length + password_length + 2;
    const SecretBytes credential(length);
    const SecretBytes encoded(encoded_size(length));
    if (credential.bytes() == nullptr || encoded.bytes() == nullptr) return false;
    credential.bytes()[0] = '\0';
    std::memcpy(credential.bytes() + 1, user, user_length + 1);
    std::memcpy(credential.bytes() + 2 + user_length, password, password_length);
    const size_t size = base64_encode(encoded.bytes(), credential.bytes(), length, line_length);
    encoded.bytes()[size] = '\0';
    line.append(encoded.bytes());
    return true;
}

}  // namespace

int SMTPClient::_SMTPAuthenticate(a_reply& reply, const char* user, const char* password) {
    if (user == nullptr || password == nullptr) {
        // As if a login had succeeded: the caller judges the code, and there is nothing to prove.
        reply.code = REPLY_AUTHENTICATED;
        return SMTP_OK;
    }
    // RFC 4954, section 3: the mechanisms stand behind the keyword, each after a blank.
    const char* const offered = FindServerCapability("AUTH");
    if (offered == nullptr || std::strstr(offered, " PLAIN") == nullptr) return SMTP_BAD_REPLY;

    Buffer line;
    line.append("AUTH PLAIN ");
    if (!append_credential(line, user, password)) return SMTP_NO_MEMORY;
    const int result = _SendLine(line);
    line.wipe();  // before a reply is waited for, which may take long
    return result == SMTP_OK ? _ProcessResponse(reply, false) : result;
}
