#ifndef QUOREL_HOST_COMPOSE_HEADERTEXT_H
#define QUOREL_HOST_COMPOSE_HEADERTEXT_H

/// What people write, as the words of header lines.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/compose/foldedheader.h"

namespace host {

/// Whether `text` may go into a header at all: UTF-8 without control characters. Else `error`
/// receives the end of a sentence. The functions below take nothing else.
bool check_header_text(std::string_view text, std::string& error);

constexpr std::string_view blanks = " \t";

/// `text` without the blanks around it.
[[nodiscard]] std::string_view without_blanks(std::string_view text);

/// A person's name in front of an address, as it is, in double quotes or encoded: whatever readers
/// and the library itself take. Blanks around it go: one by itself could become a line of nothing
/// else. `room` is what the first word has place in.
[[nodiscard]] std::vector<std::string> name_words(std::string_view name, std::size_t room);

/// A subject and its like: plain words as they are, and the rest encoded. Blanks around it go.
void put_text(FoldedHeader& header, std::string_view text);

}  // namespace host

#endif
