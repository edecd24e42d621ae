#include "host/sqlite/sqlfunction.h"

#include <algorithm>
#include <optional>

#include "host/mailsession.h"
#include "host/sqlite/interruptible.h"
#include "host/sqlite/sqlvalue.h"

namespace host {

namespace {

// What ends calls asks for itself whether it has to; a command needs a thread that asks meanwhile.
bool call(sqlite3* db, const SqlFunction& function, CallFrame& frame, std::string& error) {
    if (!function.connection->engine->ends_calls())
        return function.procedure->cancellable ? call_interruptibly(db, frame, error)
                                               : frame.call(error);
    // Most calls are over before the first question.
    std::optional<InterruptProbe> probe;
    frame.on_wait = [db, &probe] {
        if (!probe) probe.emplace(db);
        return probe->interrupted();
    };
    return frame.call(error);
}

}  // namespace

SqlConnection::~SqlConnection() {
    end_mail_sessions(engine, number);
}

bool SqlFunction::is_table() const {
    return procedure->repeats != 0 && procedure->parameters.back().direction == Direction::Out;
}

std::vector<std::uint32_t> SqlFunction::arguments() const {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t number = 1; number <= procedure->parameter_count(); ++number)
        if (procedure->parameter(number).is_positional()) numbers.push_back(number);
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
        if (!parameter.is_positional()) continue;
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

int call_from_sql(sqlite3* db, const SqlFunction& function, CallFrame& frame,
                  std::span<sqlite3_value* const> values, std::string& error) {
    const std::vector<std::uint32_t> numbers = function.arguments();
    if (values.size() < function.required() || values.size() > numbers.size()) {
        error = function.wrong_count(values.size());
        return SQLITE_ERROR;
    }
    for (std::size_t i = 0; i < values.size(); ++i)
        if (const int code =
                give_sql_value(db, frame, *function.procedure, numbers[i], values[i], error);
            code != SQLITE_OK)
            return code;

    if (function.procedure->moves_bytes()) frame.on_progress = function.on_progress;
    note_mail_call(*function.procedure, frame, function.connection->number);
    const bool called = call(db, function, frame, error);
    if (frame.cancelled()) return SQLITE_INTERRUPT;
    if (!called) return SQLITE_ERROR;
    if (!frame.warning().empty()) sqlite3_log(SQLITE_WARNING, "%s", frame.warning().c_str());
    return SQLITE_OK;
}

}  // namespace host
