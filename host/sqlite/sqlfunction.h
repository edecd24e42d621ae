#ifndef QUOREL_HOST_SQLITE_SQLFUNCTION_H
#define QUOREL_HOST_SQLITE_SQLFUNCTION_H

/// What scalar and table-valued functions share: from SQL arguments to a finished call.

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/callframe.h"
#include "host/procedures.h"
#include "host/sqlite/sqliteapi.h"

namespace host {

/// What a connection's functions have in common; it goes with the last of them, when the connection
/// is closed.
struct SqlConnection {
    std::shared_ptr<const Engine> engine;
    std::int32_t number;

    SqlConnection(std::shared_ptr<const Engine> its_engine, std::int32_t its_number)
        : engine(std::move(its_engine)), number(its_number) {}
    SqlConnection(const SqlConnection&) = delete;
    SqlConnection& operator=(const SqlConnection&) = delete;
    ~SqlConnection();
};

/// One procedure as an SQL function of one connection. `procedure` is not owned.
struct SqlFunction {
    std::shared_ptr<const SqlConnection> connection;
    const Procedure* procedure;
    std::function<void(std::uint64_t moved)> on_progress = {};

    /// True where the values come back as rows: the OUT parameters repeat.
    [[nodiscard]] bool is_table() const;
    /// The parameters that an SQL caller gives, in order: numbers for CallFrame::set_argument.
    [[nodiscard]] std::vector<std::uint32_t> arguments() const;
    /// How many of them must be given.
    [[nodiscard]] std::size_t required() const;
    /// How it is called: "xp_cmdshell(command [, output])".
    [[nodiscard]] std::string signature() const;
    /// What to tell a caller that gave this many arguments.
    [[nodiscard]] std::string wrong_count(std::size_t given) const;
};

/// Runs the function's procedure in `frame` with these SQL arguments, whose bytes it uses in place,
/// so the values must outlive the frame unchanged. SQLITE_OK; SQLITE_INTERRUPT when the statement
/// was interrupted; SQLITE_NOMEM; or SQLITE_ERROR with a sentence in `error` that says what to do.
int call_from_sql(sqlite3* db, const SqlFunction& function, CallFrame& frame,
                  std::span<sqlite3_value* const> values, std::string& error);

/// All that quorel_sqlite_register() does, for a connection that the caller keeps a hold of.
int register_functions(sqlite3* db, const std::shared_ptr<const SqlConnection>& connection,
                       const std::function<void(std::uint64_t moved)>& on_progress = {});

/// Ends the running function with `code`, for SQLITE_ERROR with the sentence `error`.
void give_error(sqlite3_context* context, int code, const std::string& error);

/// Makes `function` known to `db` under its procedure's name, as a table-valued function if it
/// is_table(). SQLite owns the copy. SQLITE_OK or SQLite's error code.
int register_scalar_function(sqlite3* db, const SqlFunction& function);
int register_table_function(sqlite3* db, const SqlFunction& function);

}  // namespace host

#endif
