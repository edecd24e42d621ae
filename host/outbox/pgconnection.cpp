#include "host/outbox/pgconnection.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>

#include "host/text.h"

namespace host::outbox {

namespace {

using Clock = PgConnection::Clock;

constexpr std::chrono::seconds longest_connect{20};
constexpr std::chrono::seconds longest_operation{60};
constexpr int tries = 5;

// What a connection needs to be: nobody else's names, outcomes that last, plans that are made for a
// large queue however small it was when they were made, and no long wait for somebody who holds a
// row, in which all others' outcomes would wait as well.
constexpr const char* settings =
    "SELECT pg_catalog.set_config('search_path', 'pg_catalog, pg_temp', false),"
    " pg_catalog.set_config('synchronous_commit', CASE pg_catalog.current_setting("
    "'synchronous_commit') WHEN 'off' THEN 'on' ELSE pg_catalog.current_setting("
    "'synchronous_commit') END, false),"
    " pg_catalog.set_config('default_transaction_isolation', 'read committed', false),"
    " pg_catalog.set_config('lock_timeout', '5s', false),"
    " pg_catalog.set_config('plan_cache_mode', 'force_generic_plan', false),"
    " pg_catalog.set_config('enable_seqscan', 'off', false),"
    " pg_catalog.set_config('enable_bitmapscan', 'off', false),"
    " pg_catalog.set_config('jit', 'off', false)";

// A message of libpq's may have several lines, of which the first says it all.
std::string first_line(std::string_view text) {
    return std::string(text.substr(0, text.find('\n')));
}

int milliseconds_to(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(0, left.count()));
}

// Locks of others, which are gone at the next try: deadlock, serialization.
bool is_worth_a_try(const PGresult* result) {
    const char* state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    return state != nullptr && std::string_view(state).starts_with("40");
}

std::string words_of(const PGresult* result) {
    if (const char* words = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY)) return words;
    const std::string words = first_line(PQresultErrorMessage(result));
    return words.empty() ? "the database gives no answer" : words;
}

bool is_good(const PGresult* result) {
    const ExecStatusType status = PQresultStatus(result);
    return status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK || status == PGRES_PIPELINE_SYNC;
}

}  // namespace

std::optional<std::string> PgRows::optional_text(int row, int column) const {
    if (is_null(row, column)) return std::nullopt;
    return text(row, column);
}

std::int64_t PgRows::integer(int row, int column) const {
    return parse_number<std::int64_t>(bytes(row, column)).value_or(0);
}

int PgRows::small(int row, int column) const {
    return parse_number<int>(bytes(row, column)).value_or(0);
}

void PgConnection::close() {
    PQfinish(_connection);
    _connection = nullptr;
    _prepared.clear();
}

bool PgConnection::_fail(std::string& error) {
    if (error.empty() && _connection != nullptr) error = first_line(PQerrorMessage(_connection));
    if (error.empty()) error = "the connection to the database is closed";
    close();
    return false;
}

// Waits for one of these events on the connection.
bool PgConnection::_await(short events, Clock::time_point deadline, std::string& error) {
    for (;;) {
        pollfd waiting{PQsocket(_connection), events, 0};
        const int ready = poll(&waiting, 1, milliseconds_to(deadline));
        if (ready > 0) return true;
        if (ready < 0 && errno == EINTR) continue;
        error = "the database does not answer";
        return false;
    }
}

bool PgConnection::_connect(const std::string& conninfo, std::string& error) {
    const char* names[] = {"dbname",          "client_encoding",  "fallback_application_name",
                           "keepalives_idle", "tcp_user_timeout", nullptr};
    const char* values[] = {conninfo.c_str(), "UTF8", "quorel-outbox", "30", "60000", nullptr};
    _connection = PQconnectStartParams(names, values, 1);
    if (_connection == nullptr) {
        error = "out of memory";
        return false;
    }
    PQsetNoticeProcessor(
        _connection, [](void*, const char*) {}, nullptr);
    const Clock::time_point deadline = Clock::now() + longest_connect;
    PostgresPollingStatusType wanted = PGRES_POLLING_WRITING;
    while (PQstatus(_connection) != CONNECTION_BAD) {
        if (!_await(wanted == PGRES_POLLING_READING ? POLLIN : POLLOUT, deadline, error))
            return false;
        wanted = PQconnectPoll(_connection);
        if (wanted == PGRES_POLLING_OK) return PQsetnonblocking(_connection, 1) == 0;
        if (wanted == PGRES_POLLING_FAILED) return false;
    }
    return false;
}

bool PgConnection::open(const std::string& conninfo, std::string& error) {
    close();
    error.clear();
    if (!_connect(conninfo, error)) return _fail(error);
    PgRows none;
    return execute(settings, none, error);
}

// The next result, null at the end of a statement's.
bool PgConnection::_next(PGresult*& result, Clock::time_point deadline, std::string& error) {
    for (;;) {
        const int unsent = PQflush(_connection);
        if (unsent < 0) return false;
        if (PQisBusy(_connection) == 0) break;
        const short events = unsent > 0 ? POLLIN | POLLOUT : POLLIN;
        if (!_await(events, deadline, error)) return false;
        if (PQconsumeInput(_connection) == 0) return false;
    }
    result = PQgetResult(_connection);
    return true;
}

bool PgConnection::execute(const std::string& script, PgRows& last, std::string& error) {
    error.clear();
    if (_connection == nullptr || PQsendQuery(_connection, script.c_str()) == 0)
        return _fail(error);
    const Clock::time_point deadline = Clock::now() + longest_operation;
    for (PGresult* result = nullptr;;) {
        if (!_next(result, deadline, error)) return _fail(error);
        if (result == nullptr) break;
        last = PgRows(result);
        if (!is_good(result) && error.empty()) error = words_of(result);
    }
    return error.empty() || _fail(error);
}

// At the first use: a server takes longer to understand them all than to open a connection, most of
// which run few.
bool PgConnection::_prepare(std::span<const PgRequest> requests, std::string& error) {
    const std::size_t before = _prepared.size();
    for (const PgRequest& request : requests)
        if (std::ranges::find(_prepared, request.statement) == _prepared.end())
            _prepared.push_back(request.statement);
    const auto added = std::span(_prepared).subspan(before);
    if (added.empty()) return true;
    if (PQenterPipelineMode(_connection) == 0) return _fail(error);
    for (const PgStatement* statement : added)
        if (PQsendPrepare(_connection, statement->name, statement->sql, 0, nullptr) == 0)
            return _fail(error);
    if (PQpipelineSync(_connection) == 0) return _fail(error);
    std::vector<PgRows> none;
    return _collect(added.size(), none, error) == Ended::Done || _fail(error);
}

bool PgConnection::_send(std::span<const PgRequest> requests, std::string& error) {
    if (PQenterPipelineMode(_connection) == 0) return _fail(error);
    for (const PgRequest& request : requests) {
        std::vector<const char*> values;
        for (const auto& value : request.values) values.push_back(value ? value->c_str() : nullptr);
        if (PQsendQueryPrepared(_connection, request.statement->name,
                                static_cast<int>(values.size()), values.data(), nullptr, nullptr,
                                request.binary ? 1 : 0) == 0)
            return _fail(error);
    }
    // What is not sent explicitly as one is a transaction to here.
    return PQpipelineSync(_connection) == 1 || _fail(error);
}

// The results of `count` statements and of their transaction's end.
PgConnection::Ended PgConnection::_collect(std::size_t count, std::vector<PgRows>& results,
                                           std::string& error) {
    const Clock::time_point deadline = Clock::now() + longest_operation;
    bool again = false;
    for (std::size_t i = 0; i <= count; ++i) {
        PGresult* result = nullptr;
        PGresult* end = nullptr;
        if (!_next(result, deadline, error)) return Ended::Failed;
        results.emplace_back(result);
        if (!is_good(result) && error.empty()) {
            error = words_of(result);
            again = is_worth_a_try(result);
        }
        if (PQresultStatus(result) == PGRES_PIPELINE_SYNC) break;
        if (i == count) return Ended::Failed;  // the end of the transaction failed
        if (!_next(end, deadline, error)) return Ended::Failed;
        PQclear(end);  // null
    }
    if (PQexitPipelineMode(_connection) == 0) return Ended::Failed;
    if (error.empty()) return Ended::Done;
    return again ? Ended::TryAgain : Ended::Failed;
}

bool PgConnection::run(std::span<const PgRequest> requests, std::vector<PgRows>& results,
                       std::string& error) {
    error.clear();
    if (_connection == nullptr) return _fail(error);
    if (!_prepare(requests, error)) return false;
    for (int left = tries;; --left) {
        error.clear();
        results.clear();
        if (!_send(requests, error)) return false;
        const Ended ended = _collect(requests.size(), results, error);
        if (ended == Ended::Done) return true;
        if (ended == Ended::Failed || left == 1) return _fail(error);
    }
}

bool PgConnection::_take_notifications() {
    bool any = false;
    while (PGnotify* notification = PQnotifies(_connection)) {
        PQfreemem(notification);
        any = true;
    }
    return any;
}

bool PgConnection::wait(std::chrono::milliseconds longest, int wake, std::string& error) {
    error.clear();
    const Clock::time_point end = Clock::now() + longest;
    while (_connection != nullptr) {
        if (PQconsumeInput(_connection) == 0) break;
        const int left = milliseconds_to(end);
        if (_take_notifications() || left == 0) return true;
        pollfd waiting[] = {{PQsocket(_connection), POLLIN, 0}, {wake, POLLIN, 0}};
        if (poll(waiting, 2, left) > 0 && waiting[1].revents != 0) return true;
    }
    return _fail(error);
}

bool PgConnection::is_ascii() const {
    const char* encoding = PQparameterStatus(_connection, "server_encoding");
    return encoding == nullptr || std::string_view(encoding) != "UTF8";
}

}  // namespace host::outbox
