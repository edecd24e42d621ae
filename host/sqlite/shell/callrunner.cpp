#include "host/sqlite/shell/callrunner.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/callframe.h"
#include "host/displaytext.h"
#include "host/mailsession.h"
#include "host/nearestname.h"
#include "host/sqlite/query.h"
#include "host/sqlite/shell/callparser.h"
#include "host/sqlite/shell/display.h"
#include "host/sqlite/shell/procedurehelp.h"
#include "host/sqlite/shell/resultprinter.h"
#include "host/sqlite/shell/signals.h"
#include "host/sqlite/shell/sqlrunner.h"
#include "host/sqlite/sqlvalue.h"

namespace host {

namespace {

constexpr const char* out_of_memory = "out of memory";

struct ValueDeleter {
    void operator()(sqlite3_value* value) const { sqlite3_value_free(value); }
};
using OwnedValue = std::unique_ptr<sqlite3_value, ValueDeleter>;

// One CALL on its way. The steps stand in the order in which they run; each returns false with the
// error set.
class CallRun {
  public:
    CallRun(Session& session, std::string_view text, StatementError& error)
        : _session(session), _text(text), _error(error),
          _bytes(session.style.cuts() ? blob_head : std::string::npos) {}

    bool run() {
        return parse_call(_text, _call, _error) && _find_procedure() && _number_arguments() &&
               _evaluate_arguments() && _run_procedure();
    }

  private:
    struct Given {
        std::uint32_t number;
        std::string_view expression;
        OwnedValue value;  // lends its bytes to the frame
    };

    bool _fail(std::string message, std::string_view part) {
        _error = {std::move(message), static_cast<std::size_t>(part.data() - _text.data())};
        return false;
    }

    bool _find_procedure();
    bool _number_arguments();
    bool _evaluate_arguments();
    bool _evaluate(Given& given);
    bool _run_procedure();
    bool _copy_value(Given& given, const sqlite3_value* value);
    bool _set_arguments(CallFrame& frame);
    bool _set_argument(CallFrame& frame, const Given& given, std::string& error);
    bool _fail_unplaced(const CallStatement::Argument& argument);
    [[nodiscard]] std::uint32_t _next_positional() const;
    void _watch(CallFrame& frame);

    Session& _session;
    const std::string_view _text;
    StatementError& _error;
    CallStatement _call;
    const Procedure* _procedure = nullptr;
    std::vector<Given> _given;
    BytesSummary _bytes;
};

bool CallRun::_find_procedure() {
    _procedure = find_procedure(_call.procedure);
    if (_procedure != nullptr) return true;
    return _fail(unknown_procedure(_call.procedure) + " (.procedures lists all)", _call.procedure);
}

bool CallRun::_number_arguments() {
    for (const CallStatement::Argument& argument : _call.arguments) {
        const std::uint32_t number = argument.name.empty()
                                         ? _next_positional()
                                         : _procedure->parameter_number(argument.name);
        if (number == 0) return _fail_unplaced(argument);
        for (const Given& other : _given)
            if (other.number == number)
                return _fail(_procedure->parameter_name(number) + " is given twice", argument.name);
        _given.push_back({number, argument.expression, nullptr});
    }
    return true;
}

// A positional argument belongs to an IN parameter, behind the one before it; the connection's
// number is never positional. 0 when there is none left.
std::uint32_t CallRun::_next_positional() const {
    const std::uint32_t last = _given.empty() ? 0 : _given.back().number;
    for (std::uint32_t number = last + 1; number <= _procedure->parameter_count(); ++number)
        if (_procedure->parameter(number).is_positional()) return number;
    return 0;
}

bool CallRun::_fail_unplaced(const CallStatement::Argument& argument) {
    const std::string name(_procedure->name);
    const std::string known = "; its parameters: " + parameter_list(*_procedure);
    if (argument.name.empty())
        return _fail("too many arguments for " + name + known, argument.expression);
    return _fail(name + " has no parameter " + std::string(argument.name) + known, argument.name);
}

bool CallRun::_evaluate_arguments() {
    for (Given& given : _given)
        if (!_evaluate(given)) return false;
    return true;
}

bool CallRun::_evaluate(Given& given) {
    constexpr std::string_view before = "SELECT (";
    const auto begin = static_cast<std::size_t>(given.expression.data() - _text.data());
    // The line end closes a comment at the end of the expression.
    const std::string sql = std::string(before).append(given.expression).append("\n)");
    int code = SQLITE_OK;
    // It is gone before the procedure runs: an open row would keep the database locked all the
    // time.
    const PreparedStatement statement = prepare(_session.db, sql, code);
    // SQLite takes @name for a variable without a value, and would go on with NULL.
    if (sqlite3_bind_parameter_count(statement.get()) > 0)
        return _fail("there are no variables here; OUT parameters are not given, they are shown",
                     given.expression);
    if (code == SQLITE_OK) {
        _session.progress.begin("evaluating an argument", cancel_hint(_session, sql),
                                Progress::Place::Edge);
        const bool row = sqlite3_step(statement.get()) == SQLITE_ROW;
        _session.progress.end();
        if (row) return _copy_value(given, sqlite3_column_value(statement.get(), 0));
    }
    _error = sqlite_error(_session.db, before.size());
    _error.offset += begin;
    return false;
}

bool CallRun::_copy_value(Given& given, const sqlite3_value* value) {
    given.value.reset(sqlite3_value_dup(value));
    return given.value != nullptr || _fail(out_of_memory, given.expression);
}

bool CallRun::_set_argument(CallFrame& frame, const Given& given, std::string& error) {
    const int code =
        give_sql_value(_session.db, frame, *_procedure, given.number, given.value.get(), error);
    if (code == SQLITE_NOMEM) error = out_of_memory;
    if (code != SQLITE_OK && error.empty()) error = sqlite3_errstr(code);
    return code == SQLITE_OK;
}

bool CallRun::_set_arguments(CallFrame& frame) {
    std::string error;
    for (const Given& given : _given)
        if (!_set_argument(frame, given, error)) return _fail(error, given.expression);
    return true;
}

// What the callbacks of a running call feed: the display of bytes, and the result's summary.
void CallRun::_watch(CallFrame& frame) {
    if (_procedure->moves_bytes())
        frame.on_progress = [this](std::uint64_t moved) { _session.progress.moved(moved); };
    if (_procedure->result != Result::Bytes) return;
    frame.on_result = [this, &frame](const void* data, std::uint32_t length, bool append) {
        _bytes.take(data, length, append);
        // A file that is read has no record to cancel; refused, it ends all the same.
        return !frame.cancelled();
    };
}

bool CallRun::_run_procedure() {
    CallFrame frame(*_session.engine, *_procedure, _session.connection);
    if (!_set_arguments(frame)) return false;
    _watch(frame);

    std::string error;
    const RunningCall running(frame);
    _session.progress.begin(
        std::string(_procedure->name),
        _procedure->cancellable || _session.engine->ends_calls() ? "Ctrl-C cancels" : "",
        _procedure->cancellable ? Progress::Place::Edge : Progress::Place::Line);
    note_mail_call(*_procedure, frame, _session.connection);
    const bool called = frame.call(error);
    _session.progress.end();
    if (!called) return _fail(error, _call.procedure);
    leave_echoed_line();
    if (!frame.warning().empty())
        fprintf(stderr, "quorelsql: warning: %s\n", display_text(frame.warning()).c_str());
    show_call_result(_session.style, *_procedure, frame, _bytes);
    return true;
}

}  // namespace

bool run_call(Session& session, std::string_view text, StatementError& error) {
    return CallRun(session, text, error).run();
}

}  // namespace host
