#ifndef QUOREL_HOST_SQLITE_SHELL_SQLRUNNER_H
#define QUOREL_HOST_SQLITE_SHELL_SQLRUNNER_H

/// A statement of SQLite's, run for a person.

#include <memory>
#include <string>
#include <string_view>

#include "host/sqlite/shell/callparser.h"
#include "host/sqlite/shell/session.h"

namespace host {

struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
/// Owns a prepared statement.
using PreparedStatement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

/// Runs `sql` and prints its rows, if it is one that has any, to standard output. False with
/// `error` set when it fails, which an interrupt also is.
bool run_sql(Session& session, std::string_view sql, StatementError& error);

/// What to tell a person who waits for `sql`; empty where Ctrl-C may not reach what it does.
[[nodiscard]] std::string cancel_hint(const Session& session, std::string_view sql);

/// What SQLite says of its last failure. `skip` bytes of the SQL text precede the user's own.
[[nodiscard]] StatementError sqlite_error(sqlite3* db, std::size_t skip = 0);

}  // namespace host

#endif
