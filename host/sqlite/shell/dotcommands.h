#ifndef QUOREL_HOST_SQLITE_SHELL_DOTCOMMANDS_H
#define QUOREL_HOST_SQLITE_SHELL_DOTCOMMANDS_H

/// The shell's commands to itself: .help lists them. quit, exit, help and \q are understood too, as
/// a line of their own.

#include <string>
#include <string_view>
#include <vector>

#include "host/sqlite/shell/session.h"

namespace host {

enum class DotResult { Done, Quit, Wrong };

/// True when the line `text` is a command to the shell, known or not, and no SQL.
[[nodiscard]] bool is_dot_command(std::string_view text);

/// Runs the line `text`, which is one, and prints to standard output. Wrong with a sentence in
/// `error` when it is none that there is or cannot be done; the sentence is empty where all has
/// been said.
DotResult run_dot_command(Session& session, std::string_view text, std::string& error);

/// The commands' names, for completion.
[[nodiscard]] std::vector<std::string> dot_command_names();

}  // namespace host

#endif
