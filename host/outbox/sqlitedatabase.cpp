#include "host/outbox/sqlitedatabase.h"

#include <algorithm>
#include <limits>

#include "host/descriptor.h"

namespace host::outbox {

namespace {

// How long a writer waits for the others.
constexpr int busy_milliseconds = 10000;

// As SQLite itself takes every name for a URI or a database in memory that looks like one.
std::string as_path(const std::string& file) {
    return !file.empty() && file.front() == '/' ? file : "./" + file;
}

// The file may be a stranger's: what its schema says must not run.
constexpr struct {
    int option;
    int value;
} settings[] = {
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
    {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
    {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
};

}  // namespace

SqliteRows::~SqliteRows() {
    if (_statement == nullptr) return;
    sqlite3_reset(_statement);
    sqlite3_clear_bindings(_statement);
}

bool SqliteRows::next() {
    if (_statement == nullptr || _code != SQLITE_OK) return false;
    const int stepped = sqlite3_step(_statement);
    if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) _code = stepped;
    return stepped == SQLITE_ROW;
}

bool SqliteRows::is_null(int column) const {
    return sqlite3_column_type(_statement, column) == SQLITE_NULL;
}

std::int64_t SqliteRows::integer(int column) const {
    return sqlite3_column_int64(_statement, column);
}

int SqliteRows::small(int column) const {
    using Int = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<std::int64_t>(integer(column), Int::min(), Int::max()));
}

double SqliteRows::real(int column) const {
    return sqlite3_column_double(_statement, column);
}

std::string SqliteRows::text(int column) const {
    if (is_null(column)) return {};
    // The pointer first: asking for it may convert the value, and the length follows that.
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(_statement, column));
    if (bytes == nullptr) {
        _code = SQLITE_NOMEM;
        return {};
    }
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))};
}

std::optional<std::string> SqliteRows::optional_text(int column) const {
    if (is_null(column)) return std::nullopt;
    return text(column);
}

bool SqliteDatabase::open(const std::string& file, bool create, std::string& error) {
    close();
    const std::string path = as_path(file);
    // Made here, since SQLite would let everybody read the passwords in it.
    if (create) (void)open_file(path.c_str(), O_RDWR | O_CREAT, S_IRUSR | S_IWUSR);
    _code =
        sqlite3_open_v2(path.c_str(), &_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (_code == SQLITE_OK) {
        sqlite3_extended_result_codes(_db, 1);
        sqlite3_busy_timeout(_db, busy_milliseconds);
        for (const auto& setting : settings)
            sqlite3_db_config(_db, setting.option, setting.value, nullptr);
        // A rollback journal's last transaction would not last through a power failure otherwise.
        _code = sqlite3_exec(_db, "PRAGMA synchronous = EXTRA", nullptr, nullptr, nullptr);
    }
    if (_code == SQLITE_OK) return true;
    error = file + ": " + (_db == nullptr ? sqlite3_errstr(_code) : sqlite3_errmsg(_db));
    close();
    return false;
}

void SqliteDatabase::close() {
    for (const Kept& kept : _statements) sqlite3_finalize(kept.statement);
    _statements.clear();
    sqlite3_close(_db);
    _db = nullptr;
    _code = SQLITE_OK;
}

bool SqliteDatabase::execute(const std::string& script, std::string& error) {
    if (sqlite3_exec(_db, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    error = sqlite3_errmsg(_db);
    return false;
}

std::string SqliteDatabase::blob(const char* table, const char* column, std::int64_t row) {
    std::string bytes;
    if (_code != SQLITE_OK) return bytes;
    sqlite3_blob* opened = nullptr;
    _code = sqlite3_blob_open(_db, "main", table, column, row, 0, &opened);
    if (_code == SQLITE_OK) {
        bytes.resize(static_cast<std::size_t>(sqlite3_blob_bytes(opened)));
        _code = sqlite3_blob_read(opened, bytes.data(), static_cast<int>(bytes.size()), 0);
    }
    sqlite3_blob_close(opened);
    return bytes;
}

std::int64_t SqliteDatabase::data_version() {
    SqliteRows version = rows("PRAGMA data_version");
    return version.next() ? version.integer(0) : 0;
}

sqlite3_stmt* SqliteDatabase::_statement(const char* sql) {
    if (_db == nullptr) _code = SQLITE_MISUSE;
    if (_code != SQLITE_OK) return nullptr;
    for (const Kept& kept : _statements)
        if (kept.sql == sql) return kept.statement;
    sqlite3_stmt* statement = nullptr;
    _code = sqlite3_prepare_v3(_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (statement != nullptr) _statements.push_back({sql, statement});
    return statement;
}

void SqliteDatabase::_bind(sqlite3_stmt* statement, int number, std::string_view text) {
    if (_code != SQLITE_OK) return;
    // A null pointer would be NULL.
    _code = sqlite3_bind_text64(statement, number, text.empty() ? "" : text.data(), text.size(),
                                SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SqliteDatabase::_bind(sqlite3_stmt* statement, int number, std::int64_t value) {
    if (_code == SQLITE_OK) _code = sqlite3_bind_int64(statement, number, value);
}

void SqliteDatabase::_bind(sqlite3_stmt* statement, int number, std::nullopt_t) {
    if (_code == SQLITE_OK) _code = sqlite3_bind_null(statement, number);
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& database, Kind kind) : _database(database) {
    // Immediate: one that reads first would be refused when another writes between.
    database.change(kind == Writes ? "BEGIN IMMEDIATE" : "BEGIN");
}

bool SqliteTransaction::commit(std::string& error) {
    _database.change("COMMIT");
    if (!_database.failed()) {
        _ended = true;
        return true;
    }
    // errmsg speaks of the last call, which may be one that came after the failure.
    error = _database._db == nullptr ? "the database is not open"
            : sqlite3_extended_errcode(_database._db) == _database._code
                ? sqlite3_errmsg(_database._db)
                : sqlite3_errstr(_database._code);
    return false;
}

SqliteTransaction::~SqliteTransaction() {
    // Closing undoes what is not committed.
    if (!_ended) _database.close();
}

}  // namespace host::outbox
