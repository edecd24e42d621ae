#ifndef QUOREL_HOST_SQLITE_SHELL_DISPLAY_H
#define QUOREL_HOST_SQLITE_SHELL_DISPLAY_H

/// Values and messages as a person reads them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/sqlite/shell/field.h"

namespace host {

/// A value on one line. A text is escaped as display_text() does, a backslash is doubled, and the
/// text NULL is \x4eULL: what is shown stands for one value only. A BLOB is x'00ff'. With `cut`, of
/// a text longer than longest_text and a BLOB longer than blob_head, the beginning and the length.
[[nodiscard]] std::string display_value(const Field& field, bool cut);
inline constexpr std::size_t longest_text = 65536;
inline constexpr std::size_t blob_head = 16;

/// "512 bytes", "1.5 MiB".
[[nodiscard]] std::string display_size(std::uint64_t bytes);

/// Terminal columns that display_text()'s output takes. Needs an UTF-8 LC_CTYPE for wide
/// characters.
[[nodiscard]] std::size_t display_width(std::string_view text);

/// `text`, or, where it is wider, as much of it as fits `width` columns with an ellipsis.
[[nodiscard]] std::string display_cut(std::string text, std::size_t width);

}  // namespace host

#endif
