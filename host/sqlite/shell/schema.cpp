#include "host/sqlite/shell/schema.h"

#include <cstdio>
#include <vector>

#include "host/displaytext.h"
#include "host/sqlite/query.h"

namespace host {

namespace {

// What is selected of a database's schema. ?1 is the pattern.
struct Selection {
    std::string_view column;
    std::string_view condition;
    bool with_database;  // name an attached database in front
};

constexpr Selection tables = {
    "name",
    "type IN ('table', 'view') AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
    "AND (?1 = '' OR name LIKE ?1) ORDER BY name",
    true};
constexpr Selection statements = {
    "sql || ';'", "sql IS NOT NULL AND (?1 = '' OR tbl_name LIKE ?1) ORDER BY rowid", false};

// A file gets what SQLite can read again.
void print_line(const Session& session, const std::string& text) {
    const std::string line = session.style.terminal ? display_text(text, "\n\t") : text;
    fwrite(line.data(), 1, line.size(), stdout);
    putchar('\n');
}

int print_selection(const Session& session, const Selection& selection, std::string_view pattern,
                    const std::string& database) {
    std::string sql = "SELECT ";
    sql.append(selection.column).append(" FROM ").append(quoted_name(database));
    sql.append(".sqlite_schema WHERE ").append(selection.condition);
    Query query(session.db, sql);
    query.bind(1, pattern);
    const std::string before = selection.with_database && database != "main" ? database + "." : "";
    while (query.next()) print_line(session, before + std::string(query.text(0).value_or("")));
    return query.code();
}

bool print_all(const Session& session, const Selection& selection, std::string_view pattern,
               std::string& error) {
    std::vector<AttachedDatabase> databases;
    int code = list_databases(session.db, databases);
    for (const AttachedDatabase& database : databases)
        if (code == SQLITE_OK) code = print_selection(session, selection, pattern, database.name);
    if (code == SQLITE_OK) return true;
    error = sqlite3_errmsg(session.db);
    return false;
}

}  // namespace

bool print_tables(const Session& session, std::string_view pattern, std::string& error) {
    return print_all(session, tables, pattern, error);
}

bool print_schema(const Session& session, std::string_view pattern, std::string& error) {
    return print_all(session, statements, pattern, error);
}

}  // namespace host
