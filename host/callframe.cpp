#include "host/callframe.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <unistd.h>

#include "host/callarguments.h"
#include "host/cancelrecord.h"
#include "host/text.h"

namespace host {

std::optional<std::int32_t> Value::as_int() const {
    std::int32_t number = 0;
    if (type != EXTFN_TYPE_INT32 || !bytes || bytes->size() != sizeof number) return std::nullopt;
    memcpy(&number, bytes->data(), sizeof number);
    return number;
}

Value Value::number(std::int32_t number) {
    return {std::string(reinterpret_cast<const char*>(&number), sizeof number), EXTFN_TYPE_INT32};
}

struct CallFrame::State {
    State(const Library& its_library, const Procedure& its_procedure, std::uint32_t its_piece_size)
        : library(its_library), procedure(its_procedure), piece_size(std::max(its_piece_size, 1U)),
          arguments(its_procedure.parameter_count()), outs(its_procedure.parameter_count()),
          cancel(its_library) {}

    const Library& library;
    const Procedure& procedure;
    const std::uint32_t piece_size;
    const CallFrame* frame = nullptr;  // whose callbacks a running call uses

    CallArguments arguments;                 // OUT parameters stay NULL
    std::optional<Value> result;             // number 0
    std::vector<std::optional<Value>> outs;  // by number - 1
    std::string warning;
    std::uint64_t moved = 0;
    pid_t process = 0;  // that made the call
    CancelRecord cancel;

    [[nodiscard]] bool exists(std::uint32_t number) const {
        return number >= 1 && number <= arguments.count();
    }

    [[nodiscard]] bool is_out(std::uint32_t number) const {
        return procedure.parameter(number).direction == Direction::Out;
    }

    // What the procedure sees; the others are the host's own.
    [[nodiscard]] bool is_passed(std::uint32_t number) const {
        return exists(number) && procedure.parameter(number).content != Content::Switch;
    }

    [[nodiscard]] bool takes(std::uint32_t number, std::string_view bytes,
                             std::string& error) const;
    [[nodiscard]] bool accept_null(std::uint32_t number, std::string& error);
    [[nodiscard]] bool accept_number(std::uint32_t number, const Value& value, std::string& error);
    [[nodiscard]] bool complete(std::string& error) const;
    [[nodiscard]] bool keeps_rules(std::string& error);
    [[nodiscard]] bool without_gap(std::string& error) const;

    bool read(std::uint32_t number, an_extfn_value& value);
    bool read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value);
    void fill(std::uint32_t number, std::uint32_t offset, an_extfn_value& value);
    bool write(std::uint32_t number, const an_extfn_value& value, bool append);
    bool write_to(std::optional<Value>& slot, const an_extfn_value& value, bool append);
    bool write_result(const an_extfn_value& value, bool append);
    void note_moved(std::uint32_t bytes);
    void end_stray_child() const;
};

// What fits an IN parameter, as far as its bytes tell.
bool CallFrame::State::takes(std::uint32_t number, std::string_view bytes,
                             std::string& error) const {
    if (!exists(number)) {
        error = std::string(procedure.name) + " takes " + std::to_string(arguments.count()) +
                (arguments.count() == 1 ? " parameter" : " parameters") +
                ", there is no parameter " + std::to_string(number);
    } else if (is_out(number)) {
        error = procedure.describe(number) + "is an OUT parameter, it takes no value";
    } else if (bytes.size() > UINT32_MAX) {
        error = procedure.describe(number) + "takes less than 4 GiB";
    } else {
        const std::string_view wrong = complaint(procedure.parameter(number).content, bytes);
        if (wrong.empty()) return true;
        error = procedure.describe(number).append(wrong);
    }
    return false;
}

// Without a connection's number a procedure takes another parameter for it, and a mail session
// would go without the TLS that was asked for.
bool CallFrame::State::accept_null(std::uint32_t number, std::string& error) {
    if (procedure.parameter(number).absent == Absent::Connection) {
        error = procedure.describe(number) + "is not NULL; leave it out for this connection";
        return false;
    }
    arguments.set_null(number);
    return true;
}

bool CallFrame::State::accept_number(std::uint32_t number, const Value& value, std::string& error) {
    const Content content = procedure.parameter(number).content;
    std::optional<std::int32_t> wanted = value.as_int();
    if (!wanted && content == Content::Switch) wanted = parse_switch(*value.bytes);
    if (!wanted) wanted = parse_number<std::int32_t>(*value.bytes);
    const NumberRange range = number_range(content);
    if (!wanted || *wanted < range.lowest || *wanted > range.highest) {
        error = procedure.describe(number).append("takes ").append(range.words);
        return false;
    }
    arguments.own(number, *Value::number(*wanted).bytes);
    return true;
}

bool CallFrame::State::complete(std::string& error) const {
    for (std::uint32_t number = 1; number <= arguments.count(); ++number) {
        if (is_out(number) || arguments.given(number)) continue;
        error = procedure.describe(number) + "is missing; give " +
                std::string(procedure.parameter(number).meaning);
        return false;
    }
    return true;
}

bool CallFrame::State::keeps_rules(std::string& error) {
    for (const Need& need : procedure.needs) {
        const CallArguments::Bytes& bytes = arguments[need.parameter];
        if (!bytes || bytes->empty() || arguments[need.other]) continue;
        error = procedure.describe(need.parameter) + "does nothing without " +
                procedure.parameter_name(need.other) + "; give both, or neither";
        return false;
    }
    if (procedure.guard == nullptr) return true;
    const std::optional<Refusal> refusal = procedure.guard(arguments, warning);
    if (refusal) error = procedure.describe(refusal->parameter) + refusal->reason;
    return !refusal;
}

// The first NULL among repeated values ends them; one behind it would be lost without a word.
bool CallFrame::State::without_gap(std::string& error) const {
    if (procedure.repeats == 0) return true;
    std::uint32_t gap = 0;
    for (auto number = static_cast<std::uint32_t>(procedure.parameters.size());
         number <= arguments.count(); ++number) {
        const bool null = !arguments[number];
        if (null && gap == 0) gap = number;
        if (null || gap == 0) continue;
        error = procedure.describe(gap) +
                "is NULL, which ends the values: " + procedure.parameter_name(number) +
                " would be lost; leave no gap";
        return false;
    }
    return true;
}

bool CallFrame::State::read(std::uint32_t number, an_extfn_value& value) {
    if (!is_passed(number)) return false;
    value = {};
    value.type = procedure.parameter(number).type;
    if (arguments[number]) fill(number, 0, value);
    return true;
}

bool CallFrame::State::read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    if (!is_passed(number)) return false;
    const CallArguments::Bytes& bytes = arguments[number];
    // There is no piece behind the end: a procedure could ask for an empty one for ever.
    if (!bytes || offset >= bytes->size()) return false;
    value.type = procedure.parameter(number).type;
    fill(number, offset, value);
    return true;
}

// A number is one piece, whatever the size of pieces.
void CallFrame::State::fill(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    const std::string_view bytes = *arguments[number];
    const auto length = static_cast<std::uint32_t>(bytes.size());
    const bool whole = value.type == EXTFN_TYPE_INT32;
    value.data = const_cast<char*>(bytes.data() + offset);
    value.piece_len = whole ? length - offset : std::min(piece_size, length - offset);
    value.total_len = length;
    if (!procedure.parameter(number).names_file) note_moved(value.piece_len);
}

bool CallFrame::State::write(std::uint32_t number, const an_extfn_value& value, bool append) {
    end_stray_child();
    const bool taken =
        number == 0 ? write_result(value, append)
                    : exists(number) && is_out(number) && write_to(outs[number - 1], value, append);
    if (taken) note_moved(value.data != nullptr ? value.piece_len : 0);
    return taken;
}

bool CallFrame::State::write_to(std::optional<Value>& slot, const an_extfn_value& value,
                                bool append) {
    if (value.data == nullptr) {
        slot = Value::null(value.type);
        return true;
    }
    const auto* data = static_cast<const char*>(value.data);
    if (!append) {
        slot = Value::text(std::string(data, value.piece_len), value.type);
        return true;
    }
    if (!slot || slot->is_null()) return false;
    slot->bytes->append(data, value.piece_len);
    return true;
}

bool CallFrame::State::write_result(const an_extfn_value& value, bool append) {
    if (!frame->on_result || value.data == nullptr) return write_to(result, value, append);
    if (append && (!result || result->is_null())) return false;
    result = Value::text({}, value.type);
    return frame->on_result(value.data, value.piece_len, append);
}

void CallFrame::State::note_moved(std::uint32_t bytes) {
    moved += bytes;
    if (frame->on_progress) frame->on_progress(moved);
}

// A child that could not execute its program comes back out of the procedure as a second copy of
// this process. It must not go on as one.
void CallFrame::State::end_stray_child() const {
    if (getpid() != process) _exit(127);
}

CallFrame::CallFrame(const Library& library, const Procedure& procedure, std::int32_t connection,
                     std::uint32_t piece_size)
    : _state(std::make_unique<State>(library, procedure, piece_size)) {
    _state->frame = this;
    CallArguments& arguments = _state->arguments;
    for (std::uint32_t number = 1; number <= arguments.count(); ++number) {
        const Absent absent = procedure.parameter(number).absent;
        if (absent == Absent::Null) arguments.set_null(number);
        if (absent == Absent::Connection) arguments.own(number, *Value::number(connection).bytes);
    }
}

CallFrame::~CallFrame() = default;

bool CallFrame::set_argument(std::uint32_t number, Value value, std::string& error) {
    const std::optional<std::int32_t> given = value.as_int();
    const bool is_text = value.bytes && !given;
    if (!_state->takes(number, is_text ? std::string_view(*value.bytes) : "", error)) return false;
    if (value.is_null()) return _state->accept_null(number, error);
    if (_state->procedure.parameter(number).type == EXTFN_TYPE_INT32)
        return _state->accept_number(number, value, error);
    _state->arguments.own(number, given ? std::to_string(*given) : std::move(*value.bytes));
    return true;
}

bool CallFrame::lend_argument(std::uint32_t number, std::string_view bytes, std::string& error) {
    if (!_state->takes(number, bytes, error)) return false;
    if (_state->procedure.parameter(number).type == EXTFN_TYPE_INT32)
        return set_argument(number, Value::text(std::string(bytes), EXTFN_TYPE_STRING), error);
    _state->arguments.lend(number, bytes);
    return true;
}

bool CallFrame::call(std::string& error) {
    an_extfn_proc* procedure = _state->library.procedure(_state->procedure.name);
    if (procedure == nullptr) {
        error = "the library does not export " + std::string(_state->procedure.name) +
                "; use a library and a host of one build";
        return false;
    }
    if (!_state->complete(error) || !_state->without_gap(error) || !_state->keeps_rules(error))
        return false;
    const FileCheck file(_state->procedure.file, _state->arguments);

    an_extfn_api api = {
        .get_value = [](void* handle, std::uint32_t number, an_extfn_value* value) -> std::int16_t {
            return static_cast<State*>(handle)->read(number, *value) ? 1 : 0;
        },
        .get_piece = [](void* handle, std::uint32_t number, an_extfn_value* value,
                        std::uint32_t offset) -> std::int16_t {
            return static_cast<State*>(handle)->read_on(number, offset, *value) ? 1 : 0;
        },
        .set_value = [](void* handle, std::uint32_t number, an_extfn_value* value,
                        std::int16_t append) -> std::int16_t {
            return static_cast<State*>(handle)->write(number, *value, append != 0) ? 1 : 0;
        },
        .set_cancel = [](void* handle,
                         void* record) { static_cast<State*>(handle)->cancel.own(record); },
    };
    _state->process = getpid();
    {
        const OrphansStay until_it_ends;
        procedure(&api, _state.get());
    }
    _state->end_stray_child();
    _state->cancel.own(nullptr);

    const std::string doubt = result() && result()->as_int() == 0 ? file.doubt() : "";
    if (!doubt.empty()) error = std::string(_state->procedure.name) + ": status 0, but " + doubt;
    return doubt.empty();
}

std::optional<std::int32_t> CallFrame::connection() const {
    for (std::uint32_t number = 1; number <= _state->arguments.count(); ++number)
        if (_state->procedure.parameter(number).absent == Absent::Connection)
            return Value::text(std::string(*_state->arguments[number]), EXTFN_TYPE_INT32).as_int();
    return std::nullopt;
}

const std::string& CallFrame::warning() const {
    return _state->warning;
}

void CallFrame::cancel() {
    _state->cancel.cancel();
}

bool CallFrame::cancelled() const {
    return _state->cancel.cancelled();
}

const std::optional<Value>& CallFrame::result() const {
    return _state->result;
}

const std::optional<Value>& CallFrame::out(std::uint32_t number) const {
    return _state->outs[number - 1];
}

}  // namespace host
