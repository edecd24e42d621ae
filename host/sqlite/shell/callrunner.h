#ifndef QUOREL_HOST_SQLITE_SHELL_CALLRUNNER_H
#define QUOREL_HOST_SQLITE_SHELL_CALLRUNNER_H

/// CALL, run for a person.

#include <string_view>

#include "host/sqlite/shell/session.h"
#include "host/sqlite/shell/statement.h"

namespace host {

/// Runs the CALL in `text`: evaluates its arguments with SQLite, calls the procedure and prints, on
/// standard output, its status with the meaning, its result, or its OUT values as a row. False with
/// `error` set, and nothing called, when the CALL is wrong. A status is no error.
bool run_call(Session& session, std::string_view text, StatementError& error);

}  // namespace host

#endif
