#ifndef QUOREL_HOST_COMPOSE_ENCODEDWORD_H
#define QUOREL_HOST_COMPOSE_ENCODEDWORD_H

/// Letters of every language in header lines, which are ASCII (RFC 2047).

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

constexpr std::size_t longest_encoded_word = 75;  // RFC 2047, section 2

/// Whether readers would not show `text`, which is UTF-8, as it is: it has letters beyond ASCII, or
/// looks like an encoded word itself.
[[nodiscard]] bool needs_encoding(std::string_view text);

/// `text`, which is UTF-8, as encoded words of whole characters, B or Q by what is shorter. The
/// first has at most `room` bytes if one character fits there; each has at most
/// longest_encoded_word. They may stand in a text and in front of an address.
[[nodiscard]] std::vector<std::string> encoded_words(std::string_view text, std::size_t room);

/// Appends `mark` and the byte in hexadecimal.
void put_hex(std::string& to, char mark, char byte);

}  // namespace host

#endif
