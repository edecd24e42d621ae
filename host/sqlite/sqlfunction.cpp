#include "host/sqlite/sqlfunction.h"

#include <algorithm>

#include "host/mailsession.h"
#include "host/sqlite/databasefiles.h"
#include "host/sqlite/interruptible.h"

namespace host {

namespace {

bool is_sql_argument(const Parameter& parameter) {
    return parameter.direction == Direction::In && parameter.absent != Absent::Connection;
}

// The procedure would open the file that `name` names.
int refuse_open_database(sqlite3* db, std::string_view name, std::string& error) {
    bool is_open = false;
    const int code = is_open_database(db, std::string(name), is_open);
    if (!is_open) return code;
    error = "this program has that file in use, as it has an open database's; "
            "copy a database with VACUUM INTO";
    return SQLITE_ERROR;
}

}  // namespace

SqlConnection::~SqlConnection() {
    end_mail_sessions(library, number);
}

bool SqlFunction::is_table() const {
    return procedure->repeats != 0 && procedure->parameters.back().direction == Direction::Out;
}

std::vector<std::uint32_t> SqlFunction::arguments() const {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t number = 1; number <= procedure->parameter_count(); ++number) {
        if (is_sql_argument(procedure->parameter(number))) numbers.push_back(number);
    }
    return numbers;
}

std::size_t SqlFunction::required() const {
    const std::vector<std::uint32_t> numbers = arguments();
    const auto last = std::find_if(numbers.rbegin(), numbers.rend(), [this](std::uint32_t number) {
        return procedure->parameter(number).absent == Absent::Refuse;
    });
    return static_cast<std::size_t>(numbers.rend() - last);
}

std::string SqlFunction::signature() const {
    const std::size_t needed = required();
    std::string text(procedure->name);
    text += '(';
    std::size_t shown = 0;
    for (const Parameter& parameter : procedure->parameters) {
        if (!is_sql_argument(parameter)) continue;
        if (shown == needed) text += shown == 0 ? "[" : " [";
        if (shown > 0) text += ", ";
        text += parameter.name;
        ++shown;
    }
    if (procedure->repeats != 0 && !is_table()) text += ", …";
    return text + (shown > needed ? "])" : ")");
}

std::string SqlFunction::wrong_count(std::size_t given) const {
    return "wrong number of arguments (" + std::to_string(given) + "); use " + signature();
}

int give_argument(sqlite3* db, CallFrame& frame, const Procedure& procedure, std::uint32_t number,
                  sqlite3_value* value, std::string& error) {
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_NULL)
        return frame.set_argument(number, Value::null(EXTFN_TYPE_STRING), error) ? SQLITE_OK
                                                                                 : SQLITE_ERROR;
    const void* data = type == SQLITE_BLOB ? sqlite3_value_blob(value) : sqlite3_value_text(value);
    const auto length = static_cast<std::size_t>(sqlite3_value_bytes(value));
    // An empty BLOB has no memory; anything else without memory could not be fetched.
    if (data == nullptr && (type != SQLITE_BLOB || length > 0)) return SQLITE_NOMEM;
    const std::string_view bytes(static_cast<const char*>(data), length);
    if (!frame.lend_argument(number, bytes, error)) return SQLITE_ERROR;
    return procedure.parameter(number).names_file ? refuse_open_database(db, bytes, error)
                                                  : SQLITE_OK;
}

int run_sql_call(sqlite3* db, const SqlFunction& function, CallFrame& frame,
                 std::span<sqlite3_value* const> values, std::string& error) {
    const std::vector<std::uint32_t> numbers = function.arguments();
    if (values.size() < function.required() || values.size() > numbers.size()) {
        error = function.wrong_count(values.size());
        return SQLITE_ERROR;
    }
    for (std::size_t i = 0; i < values.size(); ++i)
        if (const int code =
                give_argument(db, frame, *function.procedure, numbers[i], values[i], error);
            code != SQLITE_OK)
            return code;

    if (function.procedure->moves_bytes()) frame.on_progress = function.on_progress;
    note_mail_call(*function.procedure, frame, function.connection->number);
    const bool called =
        function.procedure->cancellable ? call_interruptibly(db, frame, error) : frame.call(error);
    if (!called) return SQLITE_ERROR;
    if (!frame.warning().empty()) sqlite3_log(SQLITE_WARNING, "%s", frame.warning().c_str());
    return frame.cancelled() ? SQLITE_INTERRUPT : SQLITE_OK;
}

}  // namespace host
