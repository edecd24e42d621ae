#ifndef QUOREL_HOST_OUTBOX_PGCONNECTION_H
#define QUOREL_HOST_OUTBOX_PGCONNECTION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <postgresql/libpq-fe.h>

namespace host::outbox {

struct PgStatement {
    const char* name;
    const char* sql;
};

/// One statement to run, with its parameters in text form; nothing is NULL.
struct PgRequest {
    const PgStatement* statement = nullptr;
    std::vector<std::optional<std::string>> values;
    bool binary = false;  ///< the form of the results' columns
};

/// What a statement gave.
class PgRows {
  public:
    PgRows() = default;
    explicit PgRows(PGresult* result) : _result(result) {}

    [[nodiscard]] int count() const { return PQntuples(_result.get()); }
    [[nodiscard]] bool is_null(int row, int column) const {
        return PQgetisnull(_result.get(), row, column) != 0;
    }
    /// Until the object goes; empty for NULL.
    [[nodiscard]] std::string_view bytes(int row, int column) const {
        return {PQgetvalue(_result.get(), row, column),
                static_cast<std::size_t>(PQgetlength(_result.get(), row, column))};
    }
    [[nodiscard]] std::string text(int row, int column) const {
        return std::string(bytes(row, column));
    }
    [[nodiscard]] std::optional<std::string> optional_text(int row, int column) const;
    /// Of a column whose value is a whole number in text form; 0 for any other.
    [[nodiscard]] std::int64_t integer(int row, int column) const;
    [[nodiscard]] int small(int row, int column) const;
    [[nodiscard]] bool truth(int row, int column) const { return bytes(row, column) == "t"; }

  private:
    struct Clear {
        void operator()(PGresult* result) const { PQclear(result); }
    };
    std::unique_ptr<PGresult, Clear> _result;
};

/// One connection, each of whose operations ends within a minute. After a failure, which leaves a
/// sentence in `error`, it is closed. For one thread at a time.
class PgConnection {
  public:
    using Clock = std::chrono::steady_clock;

    PgConnection() = default;
    PgConnection(const PgConnection&) = delete;
    PgConnection& operator=(const PgConnection&) = delete;
    ~PgConnection() { close(); }

    bool open(const std::string& conninfo, std::string& error);
    void close();

    /// A script of any number of statements, in a transaction of its own where it does not begin
    /// one; the rows of its last statement.
    bool execute(const std::string& script, PgRows& last, std::string& error);
    /// All of these in one transaction and one round trip, and one more for those that this
    /// connection runs for the first time. Made anew where the server says that others' locks were
    /// in the way.
    bool run(std::span<const PgRequest> requests, std::vector<PgRows>& results, std::string& error);

    /// Returns at a notification, after `longest`, or when `wake` (below 0: none) is readable.
    bool wait(std::chrono::milliseconds longest, int wake, std::string& error);

    /// Whether the database may lack characters.
    [[nodiscard]] bool is_ascii() const;

  private:
    enum class Ended { Done, TryAgain, Failed };

    bool _connect(const std::string& conninfo, std::string& error);
    bool _fail(std::string& error);
    bool _await(short events, Clock::time_point deadline, std::string& error);
    bool _next(PGresult*& result, Clock::time_point deadline, std::string& error);
    bool _prepare(std::span<const PgRequest> requests, std::string& error);
    bool _send(std::span<const PgRequest> requests, std::string& error);
    Ended _collect(std::size_t count, std::vector<PgRows>& results, std::string& error);
    bool _take_notifications();

    PGconn* _connection = nullptr;
    std::vector<const PgStatement*> _prepared;
};

}  // namespace host::outbox

#endif
