#ifndef QUOREL_HOST_SQLITE_QUERY_H
#define QUOREL_HOST_SQLITE_QUERY_H

/// What the functions themselves ask of the connection that calls them.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/sqlite/sqliteapi.h"

namespace host {

/// One statement of ours, run beside the caller's. It goes with the object: a statement that stayed
/// would keep the program from closing its connection.
class Query {
  public:
    Query(sqlite3* db, const std::string& sql);
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query();

    /// True when there is another row. After the last one code() tells whether it was the last.
    bool next();

    /// A column as text with all of its bytes, to the next call of next(); nothing for NULL.
    /// Without memory nothing as well, and code() says so.
    std::optional<std::string_view> text(int column);

    /// SQLITE_OK, or SQLite's error code.
    [[nodiscard]] int code() const { return _code; }

  private:
    sqlite3_stmt* _statement = nullptr;
    int _code;
};

struct AttachedDatabase {
    std::string name;  ///< "main", "temp", or what ATTACH calls it
    std::string file;  ///< empty for one that has no file
};

/// Appends all databases of `db`. SQLITE_OK or SQLite's error code.
int list_databases(sqlite3* db, std::vector<AttachedDatabase>& databases);

}  // namespace host

#endif
