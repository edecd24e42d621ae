#include "host/sqlite/query.h"

namespace host {

PreparedStatement prepare(sqlite3* db, std::string_view sql, int& code) {
    sqlite3_stmt* statement = nullptr;
    code = sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    return PreparedStatement(statement);
}

void Query::bind(int number, std::string_view text) {
    if (_code != SQLITE_OK) return;
    // A null pointer would be NULL.
    _code = sqlite3_bind_text(_statement.get(), number, text.empty() ? "" : text.data(),
                              static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

bool Query::next() {
    if (_code != SQLITE_OK) return false;
    const int stepped = sqlite3_step(_statement.get());
    if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) _code = stepped;
    return stepped == SQLITE_ROW;
}

std::optional<std::string_view> Query::text(int column) {
    if (sqlite3_column_type(_statement.get(), column) == SQLITE_NULL) return std::nullopt;
    // The pointer first: asking for it may convert the value, and the length follows that.
    const auto* bytes =
        reinterpret_cast<const char*>(sqlite3_column_text(_statement.get(), column));
    const int length = sqlite3_column_bytes(_statement.get(), column);
    if (bytes != nullptr) return std::string_view(bytes, static_cast<std::size_t>(length));
    _code = SQLITE_NOMEM;
    return std::nullopt;
}

std::string quoted_name(std::string_view name) {
    std::string text = "\"";
    for (const char c : name) text.append(c == '"' ? 2 : 1, c);
    return text + '"';
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
