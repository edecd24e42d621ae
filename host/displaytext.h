#ifndef QUOREL_HOST_DISPLAYTEXT_H
#define QUOREL_HOST_DISPLAYTEXT_H

/// Texts of others' making as a person reads them.

#include <string>
#include <string_view>

namespace host {

/// True of what a reader does not see, or what changes the look of something else: control
/// characters, those that turn the direction of writing, those without width, tags.
[[nodiscard]] bool is_hidden(char32_t code);

/// Text on one line: what is_hidden(), and bytes that are not UTF-8, appear as escapes (\n, \x1b,
/// \u202e), so it can neither break a table nor command the terminal. Characters in `kept` stay as
/// they are.
[[nodiscard]] std::string display_text(std::string_view text, std::string_view kept = {});

}  // namespace host

#endif
