#include "host/lineends.h"

namespace host {

namespace {

// Calls `put` for each byte of the result.
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

}  // namespace

std::uint64_t length_with_crlf(std::string_view text) {
    std::uint64_t length = 0;
    put_with_crlf(text, [&length](char) { ++length; });
    return length;
}

void copy_with_crlf(std::string_view text, char* to) {
    put_with_crlf(text, [&to](char byte) { *to++ = byte; });
}

bool has_line_with(std::string_view text, std::string_view mark) {
    for (std::size_t at = text.find(mark); at != std::string_view::npos;
         at = text.find(mark, at + 1))
        if (at == 0 || text[at - 1] == '\r' || text[at - 1] == '\n') return true;
    return false;
}

}  // namespace host
