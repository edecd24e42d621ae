#include <algorithm>
#include <memory>

#include "host/sqlite/schemaguard.h"
#include "host/sqlite/sqlfunction.h"
#include "host/utf8.h"

namespace host {

namespace {

// The table: column 0 is the value, the columns after it are the hidden arguments.
struct Table : sqlite3_vtab {
    SqlFunction function{};
    sqlite3* db = nullptr;
};

struct Cursor : sqlite3_vtab_cursor {
    std::vector<std::string> rows;
    std::size_t row = 0;
    bool checked = false;                   // a cursor lives in one run of one statement
    std::vector<sqlite3_value*> arguments;  // owned copies, for the hidden columns

    Cursor() : sqlite3_vtab_cursor{} {}
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    ~Cursor() { clear(); }

    void clear() {
        for (sqlite3_value* value : arguments) sqlite3_value_free(value);
        arguments.clear();
        rows.clear();
        row = 0;
    }
};

// SQLite takes the message away when it reports the error, which it does not always do.
int fail(sqlite3_vtab* table, const std::string& message) {
    sqlite3_free(table->zErrMsg);
    table->zErrMsg = sqlite3_mprintf("%s", message.c_str());
    return SQLITE_ERROR;
}

int connect(sqlite3* db, void* function, int, const char* const*, sqlite3_vtab** made, char**) {
    auto table = std::make_unique<Table>();
    table->function = *static_cast<const SqlFunction*>(function);
    table->db = db;
    std::string declaration = "CREATE TABLE t(value TEXT";
    for (const std::uint32_t number : table->function.arguments())
        declaration += ", " + table->function.procedure->parameter_name(number) + " HIDDEN";
    if (const int code = sqlite3_declare_vtab(db, (declaration + ")").c_str()); code != SQLITE_OK)
        return code;
    const int code = sqlite3_vtab_config(db, SQLITE_VTAB_DIRECTONLY);
    if (code == SQLITE_OK) *made = table.release();
    return code;
}

int disconnect(sqlite3_vtab* table) {
    delete static_cast<Table*>(table);
    return SQLITE_OK;
}

// Every argument must be known before the call: each hidden column needs an equality that can be
// used, which then becomes the filter's argument of the same position.
int best_index(sqlite3_vtab* vtab, sqlite3_index_info* plan) {
    const SqlFunction& function = static_cast<Table*>(vtab)->function;
    std::vector<bool> known(function.arguments().size() + 1);
    bool unusable = false;
    for (int i = 0; i < plan->nConstraint; ++i) {
        const auto& constraint = plan->aConstraint[i];
        if (constraint.iColumn < 1 || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ) continue;
        if (constraint.usable == 0) unusable = true;
        const auto argument = static_cast<std::size_t>(constraint.iColumn);
        // SQLite itself checks a second equality against the hidden column.
        if (constraint.usable == 0 || known[argument]) continue;
        known[argument] = true;
        plan->aConstraintUsage[i].argvIndex = constraint.iColumn;
        // The column gives back what it was compared with, so SQLite need not compare it again.
        plan->aConstraintUsage[i].omit = 1;
    }
    plan->estimatedCost = 10;
    plan->estimatedRows = 10;
    const auto found = static_cast<std::size_t>(std::count(known.begin(), known.end(), true));
    if (found + 1 == known.size()) return SQLITE_OK;
    // With the tables of the join in another order it may be usable.
    return unusable ? SQLITE_CONSTRAINT : fail(vtab, function.wrong_count(found));
}

int open(sqlite3_vtab*, sqlite3_vtab_cursor** cursor) {
    *cursor = new Cursor;
    return SQLITE_OK;
}

int close(sqlite3_vtab_cursor* cursor) {
    delete static_cast<Cursor*>(cursor);
    return SQLITE_OK;
}

int check_call(const Table& table, Cursor& cursor, std::string& error) {
    if (cursor.checked) return SQLITE_OK;
    const int code = check_direct_table(table.db, table.function.procedure->name, error);
    cursor.checked = code == SQLITE_OK;
    return code;
}

int filter(sqlite3_vtab_cursor* base, int, const char*, int count, sqlite3_value** values) {
    auto& cursor = *static_cast<Cursor*>(base);
    auto& table = *static_cast<Table*>(base->pVtab);
    const SqlFunction& function = table.function;
    cursor.clear();
    std::string error;
    if (const int code = check_call(table, cursor, error); code != SQLITE_OK)
        return code == SQLITE_ERROR ? fail(&table, error) : code;
    // SQLite's own go when this returns, and the columns are asked for later.
    for (int i = 0; i < count; ++i) {
        cursor.arguments.push_back(sqlite3_value_dup(values[i]));
        if (cursor.arguments.back() == nullptr) return SQLITE_NOMEM;
    }
    CallFrame frame(*function.connection->engine, *function.procedure, function.connection->number);
    const int code = call_from_sql(table.db, function, frame, cursor.arguments, error);
    if (code == SQLITE_ERROR) return fail(&table, error);
    if (code != SQLITE_OK) return code;
    for (std::uint32_t number = 1; number <= function.procedure->parameter_count(); ++number) {
        if (!function.procedure->is_out(number)) continue;
        const std::optional<Value>& value = frame.out(number);
        if (value && !value->is_null())
            cursor.rows.emplace_back(without_cut_character(*value->bytes));
    }
    return SQLITE_OK;
}

int next(sqlite3_vtab_cursor* cursor) {
    ++static_cast<Cursor*>(cursor)->row;
    return SQLITE_OK;
}

int at_end(sqlite3_vtab_cursor* base) {
    const auto* cursor = static_cast<const Cursor*>(base);
    return cursor->row >= cursor->rows.size() ? 1 : 0;
}

int column(sqlite3_vtab_cursor* base, sqlite3_context* context, int index) {
    const auto* cursor = static_cast<const Cursor*>(base);
    if (index > 0) {
        sqlite3_result_value(context, cursor->arguments[static_cast<std::size_t>(index - 1)]);
        return SQLITE_OK;
    }
    const std::string& value = cursor->rows[cursor->row];
    sqlite3_result_text(context, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    return SQLITE_OK;
}

int rowid(sqlite3_vtab_cursor* cursor, sqlite3_int64* id) {
    *id = static_cast<sqlite3_int64>(static_cast<Cursor*>(cursor)->row) + 1;
    return SQLITE_OK;
}

// Without xCreate the table exists under the module's name alone, as functions do.
sqlite3_module make_module() {
    sqlite3_module module{};
    module.xConnect = connect;
    module.xBestIndex = best_index;
    module.xDisconnect = disconnect;
    module.xOpen = open;
    module.xClose = close;
    module.xFilter = filter;
    module.xNext = next;
    module.xEof = at_end;
    module.xColumn = column;
    module.xRowid = rowid;
    return module;
}

}  // namespace

int register_table_function(sqlite3* db, const SqlFunction& function) {
    static const sqlite3_module module = make_module();
    return sqlite3_create_module_v2(db, std::string(function.procedure->name).c_str(), &module,
                                    new SqlFunction(function),
                                    [](void* owned) { delete static_cast<SqlFunction*>(owned); });
}

}  // namespace host
