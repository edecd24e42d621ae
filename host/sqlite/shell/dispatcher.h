#ifndef QUOREL_HOST_SQLITE_SHELL_DISPATCHER_H
#define QUOREL_HOST_SQLITE_SHELL_DISPATCHER_H

/// Any one statement: SQL, CALL or a command to the shell.

#include <string>

#include "host/sqlite/shell/session.h"
#include "host/sqlite/shell/statement.h"

namespace host {

enum class Ran { Done, Failed, Quit };

/// Runs `statement`, prints what it gives to standard output and why it failed to standard error:
/// "quorelsql: script.sql:12: …" where `source` is "script.sql", without a place where it is empty.
Ran run_statement(Session& session, const Statement& statement, const std::string& source);

}  // namespace host

#endif
