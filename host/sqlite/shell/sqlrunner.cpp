#include "host/sqlite/shell/sqlrunner.h"

#include <algorithm>
#include <limits>

#include "host/procedures.h"
#include "host/sqlite/query.h"
#include "host/sqlite/shell/rowprinter.h"
#include "host/sqlite/shell/signals.h"

namespace host {

namespace {

std::vector<std::string> column_names(sqlite3_stmt* statement) {
    std::vector<std::string> names(static_cast<std::size_t>(sqlite3_column_count(statement)));
    for (std::size_t i = 0; i < names.size(); ++i)
        names[i] = sqlite3_column_name(statement, static_cast<int>(i));
    return names;
}

std::vector<Field> current_row(sqlite3_stmt* statement) {
    std::vector<Field> row(static_cast<std::size_t>(sqlite3_column_count(statement)));
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = field_of(statement, static_cast<int>(i));
    return row;
}

bool print_rows(Session& session, sqlite3_stmt* statement) {
    const std::unique_ptr<RowPrinter> rows =
        make_row_printer(session.style, stdout, column_names(statement), [&session] {
            session.progress.end();
            leave_echoed_line();
        });
    int code = sqlite3_step(statement);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) {
        const std::vector<Field> row = current_row(statement);
        // A text that could not be converted would be shown as an empty one.
        if (sqlite3_errcode(session.db) == SQLITE_NOMEM) break;
        rows->add(row);
    }
    if (code != SQLITE_DONE) {
        rows->abandon();
        return false;
    }
    if (sqlite3_column_count(statement) > 0) rows->finish();
    return true;
}

}  // namespace

// What a schema calls is refused, so all that a statement can call stands in its text.
std::string cancel_hint(const Session& session, std::string_view sql) {
    if (session.engine->ends_calls()) return "Ctrl-C cancels";
    const std::string text(sql);
    const bool reachable =
        std::none_of(procedures().begin(), procedures().end(), [&text](const Procedure& procedure) {
            const std::string anywhere = "%" + std::string(procedure.name) + "%";
            return !procedure.cancellable &&
                   sqlite3_strlike(anywhere.c_str(), text.c_str(), 0) == 0;
        });
    return reachable ? "Ctrl-C cancels" : "";
}

StatementError sqlite_error(sqlite3* db, std::size_t skip) {
    const auto offset = static_cast<std::size_t>(std::max(sqlite3_error_offset(db), 0));
    return {sqlite3_errmsg(db), offset < skip ? 0 : offset - skip};
}

bool run_sql(Session& session, std::string_view sql, StatementError& error) {
    if (sql.size() > std::numeric_limits<int>::max()) {
        error = {"the statement is too long", 0};
        return false;
    }
    int code = SQLITE_OK;
    const PreparedStatement statement = prepare(session.db, sql, code);
    if (code != SQLITE_OK) {
        error = sqlite_error(session.db);
        return false;
    }
    if (statement == nullptr) return true;

    session.progress.begin("running", cancel_hint(session, sql), Progress::Place::Edge);
    const bool done = print_rows(session, statement.get());
    session.progress.end();
    if (!done) error = sqlite_error(session.db);
    return done;
}

}  // namespace host
