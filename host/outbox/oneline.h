#ifndef QUOREL_HOST_OUTBOX_ONELINE_H
#define QUOREL_HOST_OUTBOX_ONELINE_H

#include <string>
#include <string_view>

namespace host::outbox {

/// What a database, a server or a file's name says, for a line of its own on a terminal: blanks in
/// place of control characters, and ? for bytes that are not UTF-8.
[[nodiscard]] std::string on_one_line(std::string_view text);

}  // namespace host::outbox

#endif
