#ifndef QUOREL_HOST_UTF8_H
#define QUOREL_HOST_UTF8_H

/// The characters of a text (RFC 3629), which may hold bytes that are none.

#include <cstddef>
#include <string_view>

namespace host {

struct Character {
    char32_t code = 0;
    std::size_t length = 1;  ///< in bytes
    bool valid = true;       ///< false: a byte that is not UTF-8
};

/// The character at the start of `text`, which is not empty.
[[nodiscard]] Character first_character(std::string_view text);

[[nodiscard]] bool is_utf8(std::string_view text);

/// `text` without the character that begins but does not end at its end: the library counts bytes,
/// and may cut a value in the middle of one. What is no UTF-8 otherwise stays as it is.
[[nodiscard]] std::string_view without_cut_character(std::string_view text);

}  // namespace host

#endif
