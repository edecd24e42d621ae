#ifndef QUOREL_HOST_UTF8_H
#define QUOREL_HOST_UTF8_H

/// The library counts bytes, and may cut a value in the middle of a character.

#include <string_view>

namespace host {

/// `text` without the character that begins but does not end at its end (RFC 3629, section 4). What
/// is no UTF-8 otherwise stays as it is.
[[nodiscard]] std::string_view without_cut_character(std::string_view text);

}  // namespace host

#endif
