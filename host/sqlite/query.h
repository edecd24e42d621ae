#ifndef QUOREL_HOST_SQLITE_QUERY_H
#define QUOREL_HOST_SQLITE_QUERY_H

/// What the hosts themselves ask of a SQLite connection.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/sqlite/sqliteapi.h"

namespace host {

struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
/// Owns a prepared statement: one that stayed would keep the program from closing its connection.
using PreparedStatement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

/// The first statement in `sql`, which is shorter than 2 GiB; null when there is none, and when
/// `code`, which becomes SQLITE_OK or SQLite's error code, says why.
PreparedStatement prepare(sqlite3* db, std::string_view sql, int& code);

/// One statement of ours, run beside the caller's.
class Query {
  public:
    Query(sqlite3* db, std::string_view sql) : _statement(prepare(db, sql, _code)) {}

    /// Gives parameter `number` a text, which is copied. Before the first next().
    void bind(int number, std::string_view text);

    /// True when there is another row. After the last one code() tells whether it was the last.
    bool next();

    /// A column as text with all of its bytes, to the next call of next(); nothing for NULL.
    /// Without memory nothing as well, and code() says so.
    std::optional<std::string_view> text(int column);

    /// SQLITE_OK, or SQLite's error code.
    [[nodiscard]] int code() const { return _code; }

  private:
    int _code = SQLITE_OK;
    PreparedStatement _statement;
};

/// `name` as an SQL identifier in double quotes, whatever it holds.
[[nodiscard]] std::string quoted_name(std::string_view name);

struct AttachedDatabase {
    std::string name;  ///< "main", "temp", or what ATTACH calls it
    std::string file;  ///< empty for one that has no file
};

/// Appends all databases of `db`. SQLITE_OK or SQLite's error code.
int list_databases(sqlite3* db, std::vector<AttachedDatabase>& databases);

}  // namespace host

#endif
