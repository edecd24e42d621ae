#ifndef QUOREL_HOST_SQLITE_DOTCOMMANDS_H
#define QUOREL_HOST_SQLITE_DOTCOMMANDS_H

/// The shell's commands to itself: .help, .help PROCEDURE, .print, .procedures, .quit,
/// .raw.

#include <string>
#include <string_view>
#include <vector>

namespace host {

enum class DotResult { Done, Quit, Wrong };

/// Runs the line `text`, which begins with a dot, and prints to standard output. Wrong with a
/// sentence in `error` when it is none of the commands.
DotResult run_dot_command(std::string_view text, std::string& error);

/// The commands' names, for completion.
[[nodiscard]] std::vector<std::string> dot_command_names();

}  // namespace host

#endif
