#include "host/sqlite/query.h"

namespace host {

Query::Query(sqlite3* db, const std::string& sql)
    : _code(sqlite3_prepare_v2(db, sql.c_str(), -1, &_statement, nullptr)) {}

Query::~Query() {
    sqlite3_finalize(_statement);
}

bool Query::next() {
    if (_code != SQLITE_OK) return false;
    const int stepped = sqlite3_step(_statement);
    if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) _code = stepped;
    return stepped == SQLITE_ROW;
}

std::optional<std::string_view> Query::text(int column) {
    if (sqlite3_column_type(_statement, column) == SQLITE_NULL) return std::nullopt;
    // The pointer first: asking for it may convert the value, and the length follows that.
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(_statement, column));
    const int length = sqlite3_column_bytes(_statement, column);
    if (bytes != nullptr) return std::string_view(bytes, static_cast<std::size_t>(length));
    _code = SQLITE_NOMEM;
    return std::nullopt;
}

int list_databases(sqlite3* db, std::vector<AttachedDatabase>& databases) {
    constexpr int name_column = 1;
    constexpr int file_column = 2;
    Query query(db, "PRAGMA database_list");
    while (query.next())
        databases.push_back({std::string(query.text(name_column).value_or("")),
                             std::string(query.text(file_column).value_or(""))});
    return query.code();
}

}  // namespace host
