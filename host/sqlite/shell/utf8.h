#ifndef QUOREL_HOST_SQLITE_SHELL_UTF8_H
#define QUOREL_HOST_SQLITE_SHELL_UTF8_H

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

/// True of what a reader does not see, or what changes the look of something else: control
/// characters, those that turn the direction of writing, those without width, tags.
[[nodiscard]] bool is_hidden(char32_t code);

}  // namespace host

#endif
