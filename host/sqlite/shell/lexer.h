#ifndef QUOREL_HOST_SQLITE_SHELL_LEXER_H
#define QUOREL_HOST_SQLITE_SHELL_LEXER_H

/// The few lexical rules of SQL that the shell needs before SQLite sees a text: where quoted text
/// and comments end, and what a word is. Positions are byte offsets.

#include <cstddef>
#include <string_view>

namespace host {

/// What closes the quoted text or comment that begins at text[pos]: one of ' " ` ] */ or a line
/// end. Empty when none begins there. A doubled quote needs no rule of its own: it closes one
/// quoted text and begins the next.
[[nodiscard]] std::string_view closing_mark(std::string_view text, std::size_t pos);

/// Length of the mark that begins it: 2 for a comment, else 1.
[[nodiscard]] std::size_t opening_length(std::string_view text, std::size_t pos);

/// Behind the quoted text or comment that begins at text[pos]; text.npos when it is not closed.
[[nodiscard]] std::size_t skip_quoted(std::string_view text, std::size_t pos);

/// First position from `pos` on that is neither white space nor comment. A block comment that is
/// not closed counts as text, since what follows may still belong to it.
[[nodiscard]] std::size_t skip_blank(std::string_view text, std::size_t pos);

/// The unquoted identifier or keyword at text[pos]; empty when none begins there.
[[nodiscard]] std::string_view word_at(std::string_view text, std::size_t pos);

}  // namespace host

#endif
