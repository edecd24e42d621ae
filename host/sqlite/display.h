#ifndef QUOREL_HOST_SQLITE_DISPLAY_H
#define QUOREL_HOST_SQLITE_DISPLAY_H

/// Values as a person reads them on a terminal.

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace host {

/// Text on one line: control characters and bytes that are not UTF-8 appear as escapes (\n, \x1b),
/// so a value can neither break a table nor command the terminal. Of a text longer than
/// longest_text, its beginning and its length.
[[nodiscard]] std::string display_text(std::string_view text);
inline constexpr std::size_t longest_text = 65536;

/// A blob of `length` bytes that begins with `head`: x'00ff', or its first blob_head bytes and the
/// length where it is longer. `head` holds at least the lesser of both.
[[nodiscard]] std::string display_blob(std::string_view head, std::uint64_t length);
inline constexpr std::size_t blob_head = 16;

/// A column of a row of SQLite's.
[[nodiscard]] std::string display_column(sqlite3_stmt* statement, int column);

/// "512 bytes", "1.5 MiB".
[[nodiscard]] std::string display_size(std::uint64_t bytes);

/// Terminal columns that display_text()'s output takes. Needs an UTF-8 LC_CTYPE for wide
/// characters.
[[nodiscard]] std::size_t display_width(std::string_view text);

/// `text`, or, where it is wider, as much of it as fits `width` columns with an ellipsis.
[[nodiscard]] std::string display_cut(std::string text, std::size_t width);

}  // namespace host

#endif
