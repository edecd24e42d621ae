#ifndef QUOREL_HOST_SQLITE_SHELL_SCRIPT_H
#define QUOREL_HOST_SQLITE_SHELL_SCRIPT_H

/// Statements that nobody types: from the command line, a file, or standard input.

#include <string>
#include <vector>

#include "host/sqlite/shell/dispatcher.h"
#include "host/sqlite/shell/session.h"

namespace host {

/// Each runs statement by statement, up to one that says .quit, to Ctrl-C, or, where the session
/// says `bail`, to the first one that fails. Failed when any of them did, and when it was
/// interrupted.
Ran run_commands(Session& session, const std::vector<std::string>& commands);
/// A sentence in `error` where the file itself is the reason.
Ran run_script_file(Session& session, const std::string& file, std::string& error);
/// Commands that the script runs find their standard input empty.
Ran run_standard_input(Session& session);

}  // namespace host

#endif
