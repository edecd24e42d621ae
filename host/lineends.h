#ifndef QUOREL_HOST_LINEENDS_H
#define QUOREL_HOST_LINEENDS_H

/// Line ends of a text for mail, where each is CRLF and neither CR nor LF stands alone (RFC 5322,
/// section 2.3).

#include <cstdint>
#include <string_view>

namespace host {

/// How long `text` is with CRLF for each CR and each LF that stands alone.
[[nodiscard]] std::uint64_t length_with_crlf(std::string_view text);

/// Writes the text so, length_with_crlf() bytes.
void copy_with_crlf(std::string_view text, char* to);

/// True when a line of `text` begins with `mark`; a line begins behind a CR or LF, too, that stands
/// alone.
[[nodiscard]] bool has_line_with(std::string_view text, std::string_view mark);

}  // namespace host

#endif
