#include "host/sqlite/shell/schema.h"

#include <cstdio>
#include <memory>
#include <vector>

#include "host/sqlite/shell/display.h"
#include "host/sqlite/shell/sqlrunner.h"

namespace host {

namespace {

// Each is run on one database, %w, which is also parameter 2; parameter 1 is the pattern.
constexpr const char* tables =
    "SELECT iif(?2 = 'main', '', ?2 || '.') || name FROM \"%w\".sqlite_schema "
    "WHERE type IN ('table', 'view') AND name NOT LIKE 'sqlite\\_%%' ESCAPE '\\' "
    "AND (?1 = '' OR name LIKE ?1) ORDER BY name";
constexpr const char* statements =
    "SELECT sql || ';' FROM \"%w\".sqlite_schema "
    "WHERE sql IS NOT NULL AND (?1 = '' OR tbl_name LIKE ?1) ORDER BY rowid";

struct SqliteFree {
    void operator()(char* text) const { sqlite3_free(text); }
};

// A null pointer would be NULL.
void bind(sqlite3_stmt* statement, int number, std::string_view text) {
    sqlite3_bind_text(statement, number, text.empty() ? "" : text.data(),
                      static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

class SchemaQuery {
  public:
    SchemaQuery(Session& session, std::string_view pattern, std::string& error)
        : _session(session), _pattern(pattern), _error(error) {}

    bool print(const char* query) {
        std::vector<std::string> databases;
        if (!_each("SELECT name FROM pragma_database_list", {},
                   [&databases](std::string_view name) { databases.emplace_back(name); }))
            return false;
        for (const std::string& database : databases) {
            const std::unique_ptr<char, SqliteFree> sql(sqlite3_mprintf(query, database.c_str()));
            if (!_each(sql.get(), database, [this](std::string_view text) { _print(text); }))
                return false;
        }
        return true;
    }

  private:
    template <typename Take>
    bool _each(const char* sql, std::string_view database, Take take) {
        sqlite3_stmt* raw = nullptr;
        int code =
            sql == nullptr ? SQLITE_NOMEM : sqlite3_prepare_v2(_session.db, sql, -1, &raw, nullptr);
        const PreparedStatement statement(raw);
        if (code == SQLITE_OK) {
            bind(raw, 1, _pattern);
            bind(raw, 2, database);
            while ((code = sqlite3_step(raw)) == SQLITE_ROW) take(field_of(raw, 0).bytes);
        }
        if (code == SQLITE_DONE) return true;
        _error = sqlite3_errmsg(_session.db);
        return false;
    }

    // A file gets what SQLite can read again.
    void _print(std::string_view text) {
        const std::string line =
            _session.style.terminal ? display_text(text, "\n\t") : std::string(text);
        fwrite(line.data(), 1, line.size(), stdout);
        putchar('\n');
    }

    Session& _session;
    const std::string_view _pattern;
    std::string& _error;
};

}  // namespace

bool print_tables(Session& session, std::string_view pattern, std::string& error) {
    return SchemaQuery(session, pattern, error).print(tables);
}

bool print_schema(Session& session, std::string_view pattern, std::string& error) {
    return SchemaQuery(session, pattern, error).print(statements);
}

}  // namespace host
