#include "host/checkedarguments.h"

#include "host/text.h"

namespace host {

CheckedArguments::CheckedArguments(const Procedure& procedure, std::int32_t connection)
    : _procedure(procedure), _arguments(procedure.parameter_count()) {
    for (std::uint32_t number = 1; number <= _arguments.count(); ++number) {
        const Absent absent = procedure.parameter(number).absent;
        if (absent == Absent::Null) _arguments.set_null(number);
        if (absent == Absent::Connection) _arguments.own(number, *Value::number(connection).bytes);
    }
}

bool CheckedArguments::set(std::uint32_t number, Value value, std::string& error) {
    const std::optional<std::int32_t> given = value.as_int();
    // What a text may hold is no question for a number's bytes.
    const bool is_text = value.bytes && !given;
    if (!_takes(number, is_text ? std::string_view(*value.bytes) : "", error)) return false;
    if (value.is_null()) return _set_null(number, error);
    if (_procedure.parameter(number).type == EXTFN_TYPE_INT32)
        return _set_number(number, value, error);
    _arguments.own(number, given ? std::to_string(*given) : std::move(*value.bytes));
    return true;
}

bool CheckedArguments::lend(std::uint32_t number, std::string_view bytes, std::string& error) {
    if (!_takes(number, bytes, error)) return false;
    // A number's text is not what the procedure reads.
    if (_procedure.parameter(number).type == EXTFN_TYPE_INT32)
        return set(number, Value::text(std::string(bytes), EXTFN_TYPE_STRING), error);
    _arguments.lend(number, bytes);
    return true;
}

// What fits an IN parameter, as far as its bytes tell.
bool CheckedArguments::_takes(std::uint32_t number, std::string_view bytes,
                              std::string& error) const {
    if (number < 1 || number > _arguments.count()) {
        error = std::string(_procedure.name) + " takes " + std::to_string(_arguments.count()) +
                (_arguments.count() == 1 ? " parameter" : " parameters") +
                ", there is no parameter " + std::to_string(number);
    } else if (_procedure.is_out(number)) {
        error = _procedure.describe(number) + "is an OUT parameter, it takes no value";
    } else if (bytes.size() > UINT32_MAX) {
        error = _procedure.describe(number) + "takes less than 4 GiB";
    } else {
        const std::string_view wrong = complaint(_procedure.parameter(number).content, bytes);
        if (wrong.empty()) return true;
        error = _procedure.describe(number).append(wrong);
    }
    return false;
}

// Without a connection's number a procedure takes another parameter for it, and a mail session
// would go without the TLS that was asked for.
bool CheckedArguments::_set_null(std::uint32_t number, std::string& error) {
    if (_procedure.parameter(number).absent == Absent::Connection) {
        error = _procedure.describe(number) + "is not NULL; leave it out for this connection";
        return false;
    }
    _arguments.set_null(number);
    return true;
}

bool CheckedArguments::_set_number(std::uint32_t number, const Value& value, std::string& error) {
    const Content content = _procedure.parameter(number).content;
    std::optional<std::int32_t> wanted = value.as_int();
    // A switch is a number to the frame and a word to people.
    if (!wanted && content == Content::Switch) wanted = parse_switch(*value.bytes);
    if (!wanted) wanted = parse_number<std::int32_t>(*value.bytes);
    const NumberRange range = number_range(content);
    if (!wanted || *wanted < range.lowest || *wanted > range.highest) {
        error = _procedure.describe(number).append("takes ").append(range.words);
        return false;
    }
    _arguments.own(number, *Value::number(*wanted).bytes);
    return true;
}

// The guard comes last: it may rely on the others, and what it changes is what is sent.
bool CheckedArguments::finish(std::string& warning, std::string& error) {
    return _are_complete(error) && _are_without_gap(error) && _have_what_they_need(error) &&
           _pass_guard(warning, error);
}

bool CheckedArguments::_are_complete(std::string& error) const {
    for (std::uint32_t number = 1; number <= _arguments.count(); ++number) {
        if (_procedure.is_out(number) || _arguments.given(number)) continue;
        error = _procedure.describe(number) + "is missing; give " +
                std::string(_procedure.parameter(number).meaning);
        return false;
    }
    return true;
}

// The first NULL among repeated values ends them; one behind it would be lost without a word.
bool CheckedArguments::_are_without_gap(std::string& error) const {
    if (_procedure.repeats == 0) return true;
    std::uint32_t gap = 0;
    for (auto number = static_cast<std::uint32_t>(_procedure.parameters.size());
         number <= _arguments.count(); ++number) {
        const bool null = !_arguments[number];
        if (null && gap == 0) gap = number;
        if (null || gap == 0) continue;
        error = _procedure.describe(gap) +
                "is NULL, which ends the values: " + _procedure.parameter_name(number) +
                " would be lost; leave no gap";
        return false;
    }
    return true;
}

bool CheckedArguments::_have_what_they_need(std::string& error) const {
    for (const Need& need : _procedure.needs) {
        const CallArguments::Bytes& bytes = _arguments[need.parameter];
        // An empty value asks for nothing.
        if (!bytes || bytes->empty() || _arguments[need.other]) continue;
        error = _procedure.describe(need.parameter) + "does nothing without " +
                _procedure.parameter_name(need.other) + "; give both, or neither";
        return false;
    }
    return true;
}

bool CheckedArguments::_pass_guard(std::string& warning, std::string& error) {
    if (_procedure.guard == nullptr) return true;
    const Refused refusal = _procedure.guard(_arguments, warning);
    if (refusal) error = _procedure.describe(refusal->parameter) + refusal->reason;
    return !refusal;
}

std::optional<std::int32_t> CheckedArguments::connection() const {
    for (std::uint32_t number = 1; number <= _arguments.count(); ++number)
        if (_procedure.parameter(number).absent == Absent::Connection)
            return Value::text(std::string(*_arguments[number]), EXTFN_TYPE_INT32).as_int();
    return std::nullopt;
}

}  // namespace host
