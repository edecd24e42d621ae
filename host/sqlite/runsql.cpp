#include "host/sqlite/runsql.h"

#include <algorithm>
#include <limits>

#include "host/sqlite/display.h"
#include "host/sqlite/interrupt.h"
#include "host/sqlite/table.h"

namespace host {

namespace {

std::vector<std::string> column_names(sqlite3_stmt* statement) {
    std::vector<std::string> names(static_cast<std::size_t>(sqlite3_column_count(statement)));
    for (std::size_t i = 0; i < names.size(); ++i)
        names[i] = sqlite3_column_name(statement, static_cast<int>(i));
    return names;
}

std::vector<Cell> current_row(sqlite3_stmt* statement) {
    std::vector<Cell> row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
        const int type = sqlite3_column_type(statement, i);
        row.push_back(
            {display_column(statement, i), type == SQLITE_INTEGER || type == SQLITE_FLOAT});
    }
    return row;
}

bool print_rows(Session& session, sqlite3_stmt* statement) {
    Table table(stdout, column_names(statement));
    table.before_print = [&session] {
        session.progress.end();
        leave_echoed_line();
    };
    int code = sqlite3_step(statement);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) table.add(current_row(statement));
    if (code != SQLITE_DONE) {
        table.abandon();
        return false;
    }
    if (sqlite3_column_count(statement) > 0) table.finish();
    return true;
}

}  // namespace

StatementError sqlite_error(sqlite3* db, std::size_t skip) {
    const auto offset = static_cast<std::size_t>(std::max(sqlite3_error_offset(db), 0));
    return {sqlite3_errmsg(db), offset < skip ? 0 : offset - skip};
}

bool run_sql(Session& session, std::string_view sql, StatementError& error) {
    if (sql.size() > std::numeric_limits<int>::max()) {
        error = {"the statement is too long", 0};
        return false;
    }
    sqlite3_stmt* raw = nullptr;
    const int code =
        sqlite3_prepare_v2(session.db, sql.data(), static_cast<int>(sql.size()), &raw, nullptr);
    const PreparedStatement statement(raw);
    if (code != SQLITE_OK) {
        error = sqlite_error(session.db);
        return false;
    }
    if (statement == nullptr) return true;

    session.progress.begin("running", "Ctrl-C cancels", Progress::Place::Edge);
    const bool done = print_rows(session, statement.get());
    session.progress.end();
    if (!done) error = sqlite_error(session.db);
    return done;
}

}  // namespace host
