#ifndef QUOREL_HOST_SQLITE_SHELL_SQLRUNNER_H
#define QUOREL_HOST_SQLITE_SHELL_SQLRUNNER_H

/// A statement of SQLite's, run for a person.

#include <string>
#include <string_view>

#include "host/sqlite/shell/session.h"
#include "host/sqlite/shell/statement.h"

namespace host {

/// Runs `sql` and prints its rows, if it is one that has any, to standard output. False with
/// `error` set when it fails, which an interrupt also is.
bool run_sql(Session& session, std::string_view sql, StatementError& error);

/// What to tell a person who waits for `sql`; empty where Ctrl-C may not reach what it does.
[[nodiscard]] std::string cancel_hint(const Session& session, std::string_view sql);

/// What SQLite says of its last failure. `skip` bytes of the SQL text precede the user's own.
[[nodiscard]] StatementError sqlite_error(sqlite3* db, std::size_t skip = 0);

}  // namespace host

#endif
