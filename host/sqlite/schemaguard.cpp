#include "host/sqlite/schemaguard.h"

#include <vector>

#include "host/sqlite/query.h"
#include "host/text.h"

namespace host {

namespace {

// The function that stands in for a procedure while its caller is examined.
constexpr const char* stand_in_name = "xp_stand_in";

// What SQLite lets stand in a name, but for bytes beyond ASCII: to SQLite a byte order mark is
// white space, in front of a name too.
bool continues_name(char c) {
    return is_letter(c) || is_digit(c) || c == '_' || c == '$';
}

bool names_at(std::string_view sql, std::size_t at, std::string_view name) {
    constexpr int case_bit = 0x20;
    if (((sql[at] ^ name[0]) & ~case_bit) != 0) return false;  // spares a call for each byte
    if (sqlite3_strnicmp(sql.data() + at, name.data(), static_cast<int>(name.size())) != 0)
        return false;
    const std::size_t end = at + name.size();
    return (at == 0 || !continues_name(sql[at - 1])) &&
           (end == sql.size() || !continues_name(sql[end]));
}

// Where `sql` holds the word `name` from `at` on, quoted or not; npos where it does not.
std::size_t find_name(std::string_view sql, std::string_view name, std::size_t at = 0) {
    for (; at + name.size() <= sql.size(); ++at)
        if (names_at(sql, at, name)) return at;
    return std::string_view::npos;
}

bool holds(std::optional<std::string_view> sql, std::string_view name) {
    return sql && find_name(*sql, name) != std::string_view::npos;
}

// `sql` with the stand-in's name wherever it holds `name`.
std::string exchange(std::string_view sql, std::string_view name) {
    std::string text;
    for (;;) {
        const std::size_t at = find_name(sql, name);
        text += sql.substr(0, at);
        if (at == std::string_view::npos) return text;
        text += stand_in_name;
        sql.remove_prefix(at + name.size());
    }
}

// For a message: a stranger's word may be long, and hold what commands a terminal.
std::string shown(std::optional<std::string_view> word) {
    constexpr std::size_t longest = 60;
    std::string text(word.value_or("").substr(0, longest));
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return text;
}

// True in the middle of sqlite3_step: between two steps a statement has a row to show. What has no
// text is an open BLOB handle, which runs nothing.
bool is_running(sqlite3_stmt* statement) {
    return sqlite3_stmt_busy(statement) != 0 && sqlite3_data_count(statement) == 0 &&
           sqlite3_sql(statement) != nullptr;
}

class DirectCall {
  public:
    DirectCall(sqlite3* db, std::string_view name, std::string& error)
        : _db(db), _name(name), _error(error) {}

    // What calls is not in a schema, as far as texts tell.
    int check_texts() {
        if (const int code = _find_running(); code != SQLITE_OK) return code;
        if (const int code = _search_schemas(); code != SQLITE_OK) return code;
        if (holds(_sql, _name)) return SQLITE_OK;
        return _refuse("since the statement does not name it: a schema calls it");
    }

    int check_program();

  private:
    int _refuse(const std::string& why) {
        _error = std::string(_name) + " is refused " + why;
        return SQLITE_ERROR;
    }

    int _refuse_unanswered(int code, const std::string& question) {
        // These two say all there is to say, and programs look for them.
        if (code == SQLITE_NOMEM || code == SQLITE_INTERRUPT) return code;
        return _refuse("since SQLite does not tell " + question + ": " + sqlite3_errmsg(_db));
    }

    int _find_running();
    int _search_schemas();
    int _search_schema(const std::string& database);

    sqlite3* _db;
    std::string_view _name;
    std::string& _error;
    const char* _sql = nullptr;  // the running statement's
};

int DirectCall::_find_running() {
    int count = 0;
    for (auto* s = sqlite3_next_stmt(_db, nullptr); s != nullptr; s = sqlite3_next_stmt(_db, s)) {
        if (!is_running(s)) continue;
        _sql = sqlite3_sql(s);
        ++count;
    }
    if (count == 1) return SQLITE_OK;
    return _refuse("inside another statement, whose text may be a stranger's; call it in a "
                   "statement of its own");
}

int DirectCall::_search_schemas() {
    std::vector<AttachedDatabase> databases;
    if (const int code = list_databases(_db, databases); code != SQLITE_OK)
        return _refuse_unanswered(code, "which databases are attached");
    for (const AttachedDatabase& database : databases)
        if (const int code = _search_schema(database.name); code != SQLITE_OK) return code;
    return SQLITE_OK;
}

int DirectCall::_search_schema(const std::string& database) {
    // An index on this table, which a file may bring, would answer with what its maker likes.
    Query query(_db, "SELECT sql, type, name FROM " + quoted_name(database) +
                         ".sqlite_master NOT INDEXED");
    while (query.next()) {
        if (!holds(query.text(0), _name)) continue;
        return _refuse("while " + shown(query.text(1)) + " \"" + shown(query.text(2)) +
                       "\" of database " + shown(database) +
                       " names it: what a schema says must not run; drop or rename what names "
                       "it, or leave that database out");
    }
    if (query.code() == SQLITE_OK) return SQLITE_OK;
    return _refuse_unanswered(query.code(), "the schema of database " + shown(database));
}

int DirectCall::check_program() {
    constexpr int p4_column = 5;  // holds the names of the functions that are called
    Query program(_db, "EXPLAIN " + exchange(_sql, _name));
    while (program.next())
        if (holds(program.text(p4_column), _name))
            return _refuse("since the schema in memory calls it too, though the file does not say "
                           "so any more; close the database and open it again");
    if (program.code() == SQLITE_OK) return SQLITE_OK;
    return _refuse_unanswered(program.code(), "what the statement runs");
}

}  // namespace

int check_direct_call(sqlite3* db, std::string_view name, std::string& error) {
    DirectCall call(db, name, error);
    const int code = call.check_texts();
    return code == SQLITE_OK ? call.check_program() : code;
}

int check_direct_table(sqlite3* db, std::string_view name, std::string& error) {
    return DirectCall(db, name, error).check_texts();
}

int register_stand_in(sqlite3* db) {
    const auto refuse = [](sqlite3_context* context, int, sqlite3_value**) {
        sqlite3_result_error(context, "this function does nothing", -1);
    };
    return sqlite3_create_function_v2(db, stand_in_name, -1, SQLITE_UTF8 | SQLITE_DIRECTONLY,
                                      nullptr, refuse, nullptr, nullptr, nullptr);
}

}  // namespace host
