#ifndef QUOREL_HOST_OUTBOX_SQLITEDATABASE_H
#define QUOREL_HOST_OUTBOX_SQLITEDATABASE_H

/// A SQLite file that somebody else may have made, and many write to.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>

namespace host::outbox {

/// What a statement gives, row by row. Goes before another run of the same statement begins.
class SqliteRows {
  public:
    SqliteRows(sqlite3_stmt* statement, int& code) : _statement(statement), _code(code) {}
    SqliteRows(const SqliteRows&) = delete;
    SqliteRows& operator=(const SqliteRows&) = delete;
    ~SqliteRows();

    /// True when there is another row; false after the last one and after a failure, which the
    /// transaction's end tells.
    bool next();

    [[nodiscard]] bool is_null(int column) const;
    /// 0 for NULL; never out of an int's range where an int is asked for, whatever the file says.
    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] int small(int column) const;
    [[nodiscard]] double real(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] std::optional<std::string> optional_text(int column) const;

  private:
    sqlite3_stmt* _statement;  // null: a failure came before
    int& _code;
};

/// One connection. A failure lasts to the end of the transaction: until then nothing happens any
/// more, and its commit() says what it was. For one thread at a time.
class SqliteDatabase {
  public:
    SqliteDatabase() = default;
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;
    ~SqliteDatabase() { close(); }

    /// Neither triggers nor views of the file run in this connection, and nothing that its schema
    /// calls has an effect. `create`: a file that is not there is made, for its owner alone to
    /// read.
    bool open(const std::string& file, bool create, std::string& error);
    void close();
    [[nodiscard]] bool is_open() const { return _db != nullptr; }

    /// A whole script, outside any transaction of this object's.
    bool execute(const std::string& script, std::string& error);

    /// Statements are kept by the address of their text, which is a literal.
    template <typename... Values>
    SqliteRows rows(const char* sql, const Values&... values) {
        sqlite3_stmt* statement = _statement(sql);
        int number = 0;
        (_bind(statement, ++number, values), ...);
        return {_code == SQLITE_OK ? statement : nullptr, _code};
    }
    /// The number of rows that a statement changed.
    template <typename... Values>
    int change(const char* sql, const Values&... values) {
        {
            SqliteRows result = rows(sql, values...);
            while (result.next()) {
            }
        }
        return _code == SQLITE_OK ? sqlite3_changes(_db) : 0;
    }
    [[nodiscard]] std::int64_t last_id() const { return sqlite3_last_insert_rowid(_db); }
    /// A BLOB of any length, without a second copy of it in memory.
    std::string blob(const char* table, const char* column, std::int64_t row);

    /// Changes with every commit of another connection.
    std::int64_t data_version();

    [[nodiscard]] bool failed() const { return _code != SQLITE_OK; }

  private:
    friend class SqliteTransaction;

    struct Kept {
        const char* sql;
        sqlite3_stmt* statement;
    };

    sqlite3_stmt* _statement(const char* sql);
    void _bind(sqlite3_stmt* statement, int number, std::string_view text);
    void _bind(sqlite3_stmt* statement, int number, std::int64_t value);
    void _bind(sqlite3_stmt* statement, int number, std::nullopt_t);
    void _bind(sqlite3_stmt* statement, int number, const char* text) {
        _bind(statement, number, std::string_view(text));
    }
    void _bind(sqlite3_stmt* statement, int number, const std::string& text) {
        _bind(statement, number, std::string_view(text));
    }
    void _bind(sqlite3_stmt* statement, int number, std::integral auto value) {
        _bind(statement, number, static_cast<std::int64_t>(value));
    }
    template <typename Value>
    void _bind(sqlite3_stmt* statement, int number, const std::optional<Value>& value) {
        if (value)
            _bind(statement, number, *value);
        else
            _bind(statement, number, std::nullopt);
    }

    sqlite3* _db = nullptr;
    int _code = SQLITE_OK;
    std::vector<Kept> _statements;
};

/// One transaction, undone at its end unless it was committed.
class SqliteTransaction {
  public:
    enum Kind { Reads, Writes };
    SqliteTransaction(SqliteDatabase& database, Kind kind);
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    ~SqliteTransaction();

    /// False when anything failed since it began, with a sentence; the connection is then closed.
    bool commit(std::string& error);

  private:
    SqliteDatabase& _database;
    bool _ended = false;
};

}  // namespace host::outbox

#endif
