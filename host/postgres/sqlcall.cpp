#include "host/postgres/sqlcall.h"

#include <sys/stat.h>

#include "host/mailsession.h"
#include "host/postgres/backend.h"
#include "host/postgres/declaration.h"
#include "host/postgres/owngroup.h"
#include "host/postgres/watch.h"

namespace host {

namespace {

// Names of machines, people and files. The hosts' code copies such a text, and has no way to say
// that there is no memory for it.
constexpr std::size_t longest_line = 65535;

QuorelOutcome outcome_of(CallFrame::Failure failure) {
    switch (failure) {
    case CallFrame::Failure::None:
        return QUOREL_DONE;
    case CallFrame::Failure::Arguments:
        return QUOREL_BAD_ARGUMENT;
    case CallFrame::Failure::NotCalled:
        return QUOREL_UNAVAILABLE;
    case CallFrame::Failure::TooLong:
        return QUOREL_TOO_LONG;
    case CallFrame::Failure::Doubtful:
        return QUOREL_DOUBTFUL;
    default:
        return QUOREL_ENDED;
    }
}

}  // namespace

SqlCall::SqlCall(const Procedure& procedure, const QuorelSettings& settings,
                 const QuorelServer& server)
    : _procedure(procedure), _settings(settings), _server(server),
      _numbers(sql_arguments(procedure)), _outs(first_out(procedure)), _names(settings),
      _engine(backend_engine(settings, _message)), _given(procedure.parameter_count()) {
    if (_engine != nullptr)
        _frame.emplace(*_engine, procedure, settings.connection);
    else
        _outcome = QUOREL_UNAVAILABLE;
}

void SqlCall::_refuse(QuorelOutcome why, std::string words, std::string what_to_do) {
    if (_outcome != QUOREL_DONE) return;
    _outcome = why;
    _message = std::move(words);
    _hint = std::move(what_to_do);
}

// 0 for a value that there is no parameter for.
std::uint32_t SqlCall::_next_number(int argument) {
    const std::uint32_t number = _numbers[static_cast<std::size_t>(argument)];
    if (!is_repeated(_procedure, number)) return number;
    if (_repeated < _procedure.repeats) return number + _repeated++;
    _refuse(QUOREL_BAD_ARGUMENT, std::string(_procedure.name) + " takes at most " +
                                     std::to_string(_procedure.repeats) + " values");
    return 0;
}

void SqlCall::give(int argument, const char* bytes, std::size_t length) {
    if (_outcome != QUOREL_DONE) return;
    const std::uint32_t number = _next_number(argument);
    if (number == 0) return;
    std::string error;
    bool taken = false;
    if (_procedure.parameter(number).content == Content::Line && length > longest_line) {
        error = _procedure.describe(number) + "takes at most " + std::to_string(longest_line) +
                " bytes";
    } else if (bytes != nullptr) {
        _given[number - 1] = std::string_view(bytes, length);
        taken = _frame->lend_argument(number, *_given[number - 1], error);
    } else {
        taken = _frame->set_argument(number, Value::null(EXTFN_TYPE_STRING), error);
    }
    if (!taken) _refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

void SqlCall::give_number(int argument, std::int32_t value) {
    if (_outcome != QUOREL_DONE) return;
    const std::uint32_t number = _next_number(argument);
    const bool in_the_clear =
        _procedure.guard == guard_start && number == start_plaintext && value == 1;
    if (in_the_clear && !_settings.allow_plaintext_auth)
        return _refuse(QUOREL_FORBIDDEN, _procedure.describe(number) + "is not allowed here",
                       "A superuser allows it with quorel.allow_plaintext_auth; better give "
                       "trusted_cert, which asks for TLS.");
    std::string error;
    if (!_frame->set_argument(number, Value::number(value), error))
        _refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

void SqlCall::_guard_files() {
    for (std::uint32_t number = 1; number <= _procedure.parameters.size(); ++number)
        if (_procedure.parameter(number).file != FileUse::None && _given[number - 1])
            _guard_file(number);
}

void SqlCall::_guard_file(std::uint32_t number) {
    const Parameter& parameter = _procedure.parameter(number);
    const QuorelFolders& allowed = _names.folders(parameter);
    const IfMissing if_missing = _writes_something() ? IfMissing::Create : IfMissing::Leave;
    std::optional<std::string> name = _names.name_for(parameter, *_given[number - 1], if_missing);
    if (!name)
        return _refuse(QUOREL_FORBIDDEN,
                       _procedure.describe(number) + "names a file outside " + allowed.setting,
                       "The setting lists the folders whose files may be named. No link may lead "
                       "out of them.");
    if (_procedure.result == Result::Bytes) _file = *name;
    std::string error;
    if (*name != *_given[number - 1] &&
        !_frame->set_argument(number, Value::text(std::move(*name), EXTFN_TYPE_STRING), error))
        _refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

// Without contents a procedure that writes leaves the file alone.
bool SqlCall::_writes_something() const {
    const std::uint32_t number = _procedure.file.contents;
    return number != 0 && _given[number - 1] && !_given[number - 1]->empty();
}

std::uint64_t SqlCall::expected_size() const {
    struct stat64 status {};
    const bool is_regular =
        !_file.empty() && stat64(_file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return is_regular ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool SqlCall::_call_in_process() {
    const OwnGroup command;
    Watch watch(*_frame, _server.should_stop, std::chrono::milliseconds(_settings.deadline));
    const bool called = _frame->call(_message);
    if (!watch.end()) return called;
    _outcome = QUOREL_TOO_LONG;
    _message = std::string(_procedure.name) + " took longer than " +
               std::to_string(_settings.deadline) + " ms and was ended";
    return false;
}

QuorelOutcome SqlCall::run() {
    if (_outcome == QUOREL_DONE) _guard_files();
    if (_outcome != QUOREL_DONE) return _outcome;
    _frame->on_wait = _server.attend;
    if (_procedure.result == Result::Bytes)
        _frame->on_result = [this](const void* data, std::uint32_t length, bool append) {
            return _server.take(_server.sink, data, length, append);
        };
    note_mail_call(_procedure, *_frame, _settings.connection);
    _engine->set_deadline(std::chrono::milliseconds(_settings.deadline));
    const bool watched = _procedure.cancellable && !_engine->ends_calls();
    const bool called = watched ? _call_in_process() : _frame->call(_message);
    if (!called && _outcome == QUOREL_DONE) _outcome = outcome_of(_frame->failure());
    if (_outcome == QUOREL_TOO_LONG) _hint = "The setting quorel.deadline limits each call.";
    return _outcome;
}

}  // namespace host
