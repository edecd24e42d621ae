#ifndef QUOREL_HOST_SQLITE_SCRIPT_H
#define QUOREL_HOST_SQLITE_SCRIPT_H

/// Statements that nobody types: from the command line, a file, or standard input.

#include <string>

#include "host/sqlite/session.h"

namespace host {

/// Each runs statement by statement, stops at the first one that fails or at Ctrl-C, and returns
/// the program's exit status: 0 or 1.
int run_command(Session& session, const std::string& sql);
int run_script_file(Session& session, const std::string& file);
/// Commands that the script runs find their standard input empty.
int run_standard_input(Session& session);

}  // namespace host

#endif
