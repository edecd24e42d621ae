#include "host/callframe.h"

#include <algorithm>
#include <vector>

#include <unistd.h>

#include "host/cancelrecord.h"
#include "host/checkedarguments.h"

namespace host {

// What the library gets as its handle of a call: the four callbacks find everything here.
struct CallFrame::State {
    State(const CallFrame& its_frame, const Engine& its_engine, const Procedure& its_procedure,
          std::int32_t connection, std::uint32_t its_piece_size)
        : frame(its_frame), engine(its_engine), procedure(its_procedure),
          piece_size(std::max(its_piece_size, 1U)), arguments(its_procedure, connection),
          outs(its_procedure.parameter_count()), cancel(its_engine) {}

    const CallFrame& frame;  // whose functions hear of what moves
    const Engine& engine;
    const Procedure& procedure;
    const std::uint32_t piece_size;

    CheckedArguments arguments;
    std::optional<Value> result;             // number 0
    std::vector<std::optional<Value>> outs;  // by number - 1
    std::size_t kept = 0;                    // bytes in these two
    std::string warning;
    std::uint64_t moved = 0;
    pid_t process = 0;  // that made the call
    bool called = false;
    Failure failure = Failure::None;
    CancelRecord cancel;

    [[nodiscard]] bool exists(std::uint32_t number) const {
        return number >= 1 && number <= arguments.given().count();
    }

    // What the procedure sees; the others are the host's own.
    [[nodiscard]] bool is_passed(std::uint32_t number) const {
        return exists(number) && procedure.parameter(number).content != Content::Switch;
    }

    bool read(std::uint32_t number, an_extfn_value& value);
    bool read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value);
    void fill(std::uint32_t number, std::uint32_t offset, an_extfn_value& value);
    bool write(std::uint32_t number, const an_extfn_value& value, bool append);
    bool write_to(std::optional<Value>& slot, const an_extfn_value& value, bool append);
    bool write_result(const an_extfn_value& value, bool append);
    void note_moved(std::uint32_t bytes);
    static Failure failure_of(CallEnd end);
    bool run(std::string& error);
    void end_stray_child() const;
};

bool CallFrame::State::read(std::uint32_t number, an_extfn_value& value) {
    if (!is_passed(number)) return false;
    value = {};
    value.type = procedure.parameter(number).type;
    if (arguments.given()[number]) fill(number, 0, value);
    return true;
}

bool CallFrame::State::read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    if (!is_passed(number)) return false;
    const CallArguments::Bytes& bytes = arguments.given()[number];
    // There is no piece behind the end: a procedure could ask for an empty one for ever.
    if (!bytes || offset >= bytes->size()) return false;
    value.type = procedure.parameter(number).type;
    fill(number, offset, value);
    return true;
}

// A number is one piece, whatever the size of pieces.
void CallFrame::State::fill(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    const std::string_view bytes = *arguments.given()[number];
    const auto length = static_cast<std::uint32_t>(bytes.size());
    const bool whole = value.type == EXTFN_TYPE_INT32;
    // The interface has one record for both directions; the library does not write here.
    value.data = const_cast<char*>(bytes.data() + offset);
    value.piece_len = whole ? length - offset : std::min(piece_size, length - offset);
    value.total_len = length;
    if (procedure.parameter(number).file == FileUse::None) note_moved(value.piece_len);
}

bool CallFrame::State::write(std::uint32_t number, const an_extfn_value& value, bool append) {
    // It comes to tell of its failure, not with more of a value.
    if (!append) end_stray_child();
    const bool taken = number == 0 ? write_result(value, append)
                                   : exists(number) && procedure.is_out(number) &&
                                         write_to(outs[number - 1], value, append);
    if (taken) note_moved(value.data != nullptr ? value.piece_len : 0);
    return taken;
}

bool CallFrame::State::write_to(std::optional<Value>& slot, const an_extfn_value& value,
                                bool append) {
    // Nothing was begun that a piece could go on with.
    const bool is_begun = slot && !slot->is_null();
    if (append && value.data != nullptr && !is_begun) return false;
    if (!append || value.data == nullptr) {
        kept -= is_begun ? slot->bytes->size() : 0;
        slot = Value::null(value.type);
    }
    if (value.data == nullptr) return true;
    if (value.piece_len > most_kept - kept) return false;
    kept += value.piece_len;
    if (!slot->bytes) slot->bytes.emplace();
    slot->bytes->append(static_cast<const char*>(value.data), value.piece_len);
    return true;
}

bool CallFrame::State::write_result(const an_extfn_value& value, bool append) {
    if (!frame.on_result || value.data == nullptr) return write_to(result, value, append);
    if (append && (!result || result->is_null())) return false;
    // The bytes are on_result's. That they came is told by a value that is not NULL.
    result = Value::text({}, value.type);
    return frame.on_result(value.data, value.piece_len, append);
}

void CallFrame::State::note_moved(std::uint32_t bytes) {
    moved += bytes;
    if (frame.on_progress) frame.on_progress(moved);
}

// A child that could not execute its program comes back out of the procedure as a second copy of
// this process. It must not go on as one.
void CallFrame::State::end_stray_child() const {
    if (getpid() != process) _exit(127);
}

CallFrame::Failure CallFrame::State::failure_of(CallEnd end) {
    switch (end) {
    case CallEnd::Returned:
        return Failure::None;
    case CallEnd::NotCalled:
        return Failure::NotCalled;
    case CallEnd::TooLong:
        return Failure::TooLong;
    default:
        return Failure::Ended;
    }
}

bool CallFrame::State::run(std::string& error) {
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
    process = getpid();
    Engine::Interrupted interrupted;
    if (frame.on_wait)
        interrupted = [this] {
            if (!frame.on_wait()) return false;
            cancel.cancel();
            return true;
        };
    const CallEnd end = engine.call(procedure.name, api, this, interrupted, error);
    end_stray_child();
    // What it points at has ended, and its number may be another process's soon.
    cancel.own(nullptr);
    called = end != CallEnd::NotCalled;
    failure = failure_of(end);
    if (failure == Failure::None) return true;
    // What has arrived of a value may be a part of it.
    result.reset();
    outs.assign(outs.size(), std::nullopt);
    return false;
}

CallFrame::CallFrame(const Engine& engine, const Procedure& procedure, std::int32_t connection,
                     std::uint32_t piece_size)
    : _state(std::make_unique<State>(*this, engine, procedure, connection, piece_size)) {}

CallFrame::~CallFrame() = default;

bool CallFrame::set_argument(std::uint32_t number, Value value, std::string& error) {
    return _state->arguments.set(number, std::move(value), error);
}

bool CallFrame::lend_argument(std::uint32_t number, std::string_view bytes, std::string& error) {
    return _state->arguments.lend(number, bytes, error);
}

bool CallFrame::call(std::string& error) {
    const Procedure& procedure = _state->procedure;
    _state->failure = Failure::Arguments;
    if (!_state->arguments.finish(_state->warning, error)) return false;
    // It looks at the file that is there before the call.
    const FileCheck file(procedure.file, _state->arguments.given());
    if (!_state->run(error)) return false;

    const std::string doubt = result() && result()->as_int() == 0 ? file.doubt() : "";
    if (doubt.empty()) return true;
    error = std::string(procedure.name) + ": status 0, but " + doubt;
    _state->failure = Failure::Doubtful;
    return false;
}

CallFrame::Failure CallFrame::failure() const {
    return _state->failure;
}

bool CallFrame::was_called() const {
    return _state->called;
}

std::optional<std::int32_t> CallFrame::connection() const {
    return _state->arguments.connection();
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
