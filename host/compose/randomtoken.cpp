#include "host/compose/randomtoken.h"

#include <cerrno>

#include <sys/random.h>

namespace host {

bool random_token(std::string& token) {
    unsigned char bytes[26];
    ssize_t got = -1;
    do {
        got = getrandom(bytes, sizeof bytes, 0);
    } while (got < 0 && errno == EINTR);
    // So few bytes come all or not at all (getrandom(2)).
    if (got != static_cast<ssize_t>(sizeof bytes)) return false;
    constexpr char digits[] = "abcdefghijklmnopqrstuvwxyz234567";
    token.clear();
    for (const unsigned char byte : bytes) token += digits[byte & 0x1FU];
    return true;
}

}  // namespace host
