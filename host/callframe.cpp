#include "host/callframe.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/cancelrecord.h"
#include "host/text.h"

namespace host {

namespace {

bool is_text(a_sql_data_type type) {
    return type == EXTFN_TYPE_CHAR || type == EXTFN_TYPE_STRING || type == EXTFN_TYPE_LONGCHAR;
}

struct Argument {
    bool given = false;
    std::string owned;                      // storage of `bytes`, unless they were lent
    std::optional<std::string_view> bytes;  // empty: NULL; never a null pointer

    void own(std::string value) {
        owned = std::move(value);
        lend(owned);
    }
    void lend(std::string_view value) {
        given = true;
        bytes = value.data() == nullptr ? std::string_view("") : value;
    }
    void set_null() {
        given = true;
        bytes.reset();
    }
};

}  // namespace

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

    std::vector<Argument> arguments;         // by number - 1; OUT parameters stay NULL
    std::optional<Value> result;             // number 0
    std::vector<std::optional<Value>> outs;  // by number - 1
    std::uint64_t moved = 0;
    pid_t process = 0;  // that made the call
    CancelRecord cancel;

    [[nodiscard]] bool exists(std::uint32_t number) const {
        return number >= 1 && number <= arguments.size();
    }

    [[nodiscard]] bool is_out(std::uint32_t number) const {
        return procedure.parameter(number).direction == Direction::Out;
    }

    Argument* in_parameter(std::uint32_t number, std::string_view bytes, std::string& error);
    [[nodiscard]] bool fits(std::uint32_t number, std::string_view bytes, std::string& error) const;
    [[nodiscard]] bool accept_null(std::uint32_t number, Argument& argument,
                                   std::string& error) const;
    [[nodiscard]] std::string describe(std::uint32_t number) const;
    [[nodiscard]] bool complete(std::string& error) const;
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

std::string CallFrame::State::describe(std::uint32_t number) const {
    std::string text(procedure.name);
    text +=
        ": parameter " + std::to_string(number) + " (" + procedure.parameter_name(number) + ") ";
    return text;
}

bool CallFrame::State::fits(std::uint32_t number, std::string_view bytes,
                            std::string& error) const {
    if (bytes.size() > UINT32_MAX) {
        error = describe(number) + "takes less than 4 GiB";
        return false;
    }
    const Content content = procedure.parameter(number).content;
    if (content == Content::Any) {
        // The procedures use text as C strings: it would be cut at a zero byte unnoticed.
        if (!is_text(procedure.parameter(number).type)) return true;
        if (bytes.find('\0') == std::string_view::npos) return true;
        error = describe(number) + "is text and takes no zero byte";
        return false;
    }
    constexpr std::string_view breaks("\r\n\0", 3);
    if (bytes.find_first_of(breaks) != std::string_view::npos) {
        error = describe(number) + "takes no line breaks and no zero bytes";
        return false;
    }
    if (content == Content::Address && bytes.find_first_of("<>") != std::string_view::npos) {
        error = describe(number) + "takes bare addresses, without < and >";
        return false;
    }
    return true;
}

Argument* CallFrame::State::in_parameter(std::uint32_t number, std::string_view bytes,
                                         std::string& error) {
    if (!exists(number)) {
        error = std::string(procedure.name) + " takes " + std::to_string(arguments.size()) +
                (arguments.size() == 1 ? " parameter" : " parameters") +
                ", there is no parameter " + std::to_string(number);
        return nullptr;
    }
    if (is_out(number)) {
        error = describe(number) + "is an OUT parameter, it takes no value";
        return nullptr;
    }
    return fits(number, bytes, error) ? &arguments[number - 1] : nullptr;
}

// Without a connection's number a procedure takes another parameter for it, and a mail session
// would go without the TLS that was asked for.
bool CallFrame::State::accept_null(std::uint32_t number, Argument& argument,
                                   std::string& error) const {
    if (procedure.parameter(number).absent == Absent::Connection) {
        error = describe(number) + "is not NULL; leave it out for this connection";
        return false;
    }
    argument.set_null();
    return true;
}

bool CallFrame::State::complete(std::string& error) const {
    for (std::uint32_t number = 1; number <= arguments.size(); ++number) {
        if (is_out(number) || arguments[number - 1].given) continue;
        error = describe(number) + "is missing; give " +
                std::string(procedure.parameter(number).meaning);
        return false;
    }
    return true;
}

// The first NULL among repeated values ends them; one behind it would be lost without a word.
bool CallFrame::State::without_gap(std::string& error) const {
    if (procedure.repeats == 0) return true;
    std::uint32_t gap = 0;
    for (auto number = static_cast<std::uint32_t>(procedure.parameters.size());
         number <= arguments.size(); ++number) {
        const bool null = !arguments[number - 1].bytes;
        if (null && gap == 0) gap = number;
        if (null || gap == 0) continue;
        error = describe(gap) +
                "is NULL, which ends the values: " + procedure.parameter_name(number) +
                " would be lost; leave no gap";
        return false;
    }
    return true;
}

bool CallFrame::State::read(std::uint32_t number, an_extfn_value& value) {
    if (!exists(number)) return false;
    value = {};
    value.type = procedure.parameter(number).type;
    if (arguments[number - 1].bytes) fill(number, 0, value);
    return true;
}

bool CallFrame::State::read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    if (!exists(number)) return false;
    const std::optional<std::string_view>& bytes = arguments[number - 1].bytes;
    // There is no piece behind the end: a procedure could ask for an empty one for ever.
    if (!bytes || offset >= bytes->size()) return false;
    value.type = procedure.parameter(number).type;
    fill(number, offset, value);
    return true;
}

// A number is one piece, whatever the size of pieces.
void CallFrame::State::fill(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    const std::string_view bytes = *arguments[number - 1].bytes;
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
    for (std::uint32_t number = 1; number <= _state->arguments.size(); ++number) {
        Argument& argument = _state->arguments[number - 1];
        const Absent absent = procedure.parameter(number).absent;
        if (absent == Absent::Null) argument.set_null();
        if (absent == Absent::Connection) argument.own(*Value::number(connection).bytes);
    }
}

CallFrame::~CallFrame() = default;

bool CallFrame::set_argument(std::uint32_t number, Value value, std::string& error) {
    const bool is_text = value.bytes && value.type != EXTFN_TYPE_INT32;
    Argument* argument =
        _state->in_parameter(number, is_text ? std::string_view(*value.bytes) : "", error);
    if (argument == nullptr) return false;
    if (value.is_null()) return _state->accept_null(number, *argument, error);
    const std::optional<std::int32_t> given = value.as_int();
    if (_state->procedure.parameter(number).type != EXTFN_TYPE_INT32) {
        argument->own(given ? std::to_string(*given) : std::move(*value.bytes));
        return true;
    }
    const std::optional<std::int32_t> wanted =
        given ? given : parse_number<std::int32_t>(*value.bytes);
    if (!wanted) {
        error = _state->describe(number) + "takes a whole number from -2147483648 to 2147483647";
        return false;
    }
    argument->own(*Value::number(*wanted).bytes);
    return true;
}

bool CallFrame::lend_argument(std::uint32_t number, std::string_view bytes, std::string& error) {
    Argument* argument = _state->in_parameter(number, bytes, error);
    if (argument == nullptr) return false;
    if (_state->procedure.parameter(number).type == EXTFN_TYPE_INT32)
        return set_argument(number, Value::text(std::string(bytes), EXTFN_TYPE_STRING), error);
    argument->lend(bytes);
    return true;
}

bool CallFrame::call(std::string& error) {
    an_extfn_proc* procedure = _state->library.procedure(_state->procedure.name);
    if (procedure == nullptr) {
        error = "the library does not export " + std::string(_state->procedure.name) +
                "; use a library and a host of one build";
        return false;
    }
    if (!_state->complete(error) || !_state->without_gap(error)) return false;

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
    return true;
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
