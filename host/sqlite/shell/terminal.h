#ifndef QUOREL_HOST_SQLITE_SHELL_TERMINAL_H
#define QUOREL_HOST_SQLITE_SHELL_TERMINAL_H

/// The conversation with a person at a terminal.

#include "host/sqlite/shell/session.h"

namespace host {

/// Prompts for statements and runs them until .quit or Ctrl-D. Errors are reported and not fatal.
void run_terminal(Session& session);

}  // namespace host

#endif
