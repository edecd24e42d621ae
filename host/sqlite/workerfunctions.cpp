#include "host/sqlite/workerfunctions.h"

#include <mutex>

#include "host/mailsession.h"
#include "host/seconds.h"
#include "host/sqlite/schemaguard.h"

namespace host {

namespace {

constexpr const char* worker_name = "quorel_worker";
constexpr const char* deadline_name = "quorel_deadline";

constexpr const char* remedy = "install libquorel, or build it with tools/demo, then put it beside "
                               "the extension or name its file in QUOREL_LIBRARY";

// The library of this process, for all connections, from the first load that succeeds. It is never
// unloaded: a connection on another thread may be inside it when the program exits.
std::shared_ptr<const Engine> shared_library(std::string& error) {
    static std::mutex mutex;
    static auto& library = *new std::shared_ptr<const Engine>;
    const std::lock_guard lock(mutex);
    if (library == nullptr) library = open_engine(Place::InProcess, {}, remedy, error);
    return library;
}

SqlConnection& connection_of(sqlite3_context* context) {
    return **static_cast<std::shared_ptr<SqlConnection>*>(sqlite3_user_data(context));
}

void fail(sqlite3_context* context, const std::string& error) {
    give_error(context, SQLITE_ERROR, error);
}

// False where a schema may be what calls `name`, which then has failed.
bool is_direct_call(sqlite3_context* context, const char* name) {
    std::string error;
    const int code = check_direct_call(sqlite3_context_db_handle(context), name, error);
    if (code != SQLITE_OK) give_error(context, code, error);
    return code == SQLITE_OK;
}

void worker(sqlite3_context* context, int count, sqlite3_value** values) {
    if (!is_direct_call(context, worker_name)) return;
    SqlConnection& connection = connection_of(context);
    std::string error;
    if (count > 1) return fail(context, "use quorel_worker(on) or quorel_worker()");
    const bool is_on = connection.engine->ends_calls();
    const bool wanted = count == 1 ? sqlite3_value_int(values[0]) != 0 : is_on;
    const Place place = wanted ? Place::InWorker : Place::InProcess;
    if (wanted != is_on && !move_to(place, connection, error)) return fail(context, error);
    sqlite3_result_int(context, wanted ? 1 : 0);
}

void deadline(sqlite3_context* context, int, sqlite3_value** values) {
    if (!is_direct_call(context, deadline_name)) return;
    const SqlConnection& connection = connection_of(context);
    const double seconds = sqlite3_value_double(values[0]);
    const auto wanted = as_deadline(seconds);
    if (!connection.engine->ends_calls())
        return fail(context, "calls in this process cannot be ended; SELECT quorel_worker(true)");
    if (!wanted || sqlite3_value_numeric_type(values[0]) == SQLITE_TEXT)
        return fail(context, "quorel_deadline takes a number of seconds");
    connection.engine->set_deadline(*wanted);
    sqlite3_result_double(context, seconds);
}

int register_one(sqlite3* db, const char* name, int count,
                 const std::shared_ptr<SqlConnection>& connection,
                 void (*function)(sqlite3_context*, int, sqlite3_value**)) {
    return sqlite3_create_function_v2(
        db, name, count, SQLITE_UTF8 | SQLITE_DIRECTONLY,
        new std::shared_ptr<SqlConnection>(connection), function, nullptr, nullptr,
        [](void* owned) { delete static_cast<std::shared_ptr<SqlConnection>*>(owned); });
}

}  // namespace

bool move_to(Place place, SqlConnection& connection, std::string& error) {
    std::shared_ptr<const Engine> engine =
        place == Place::InProcess ? shared_library(error) : open_engine(place, {}, remedy, error);
    if (engine == nullptr) return false;
    if (connection.engine != nullptr) end_mail_sessions(connection.engine, connection.number);
    connection.engine = std::move(engine);
    return true;
}

int register_worker_functions(sqlite3* db, const std::shared_ptr<SqlConnection>& connection) {
    constexpr int any_number = -1;
    const int code = register_one(db, worker_name, any_number, connection, worker);
    if (code != SQLITE_OK) return code;
    return register_one(db, deadline_name, 1, connection, deadline);
}

}  // namespace host
