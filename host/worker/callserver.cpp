#include "host/worker/callserver.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace host {

using Received = FrameSocket::Received;

namespace {

// Shorter pieces go through the socket, one by one.
constexpr std::size_t shared_from = 4096;
constexpr std::uint32_t all_slots = (1U << SharedPieces::slots) - 1;

std::string_view sentence(std::string_view error) {
    return error.substr(0, longest_sentence);
}

}  // namespace

void CallServer::run() {
    _process = getpid();
    if (!_greet()) return;
    _watch({});
    Frame frame;
    while (_socket.receive(frame) == Received::Frame) {
        // One that crossed the end of its call on the way.
        if (frame.kind == FrameKind::Refuse || frame.kind == FrameKind::Taken)
            _note(frame);
        else if (frame.kind != FrameKind::Call || !_serve(frame))
            return;
    }
}

bool CallServer::_greet() {
    Frame hello;
    if (_socket.receive(hello) != Received::Frame || hello.kind != FrameKind::Hello) return false;
    std::string error;
    if (hello.number != frames_version)
        error = "the host and its quorel-worker are not of one build";
    else
        _engine = _load(std::string(hello.payload), error);
    _shared.open(_host, static_cast<int>(hello.offset));
    if (_engine != nullptr)
        return _socket.send({.kind = FrameKind::Ready, .number = frames_version});
    _socket.send({.kind = FrameKind::Failed, .payload = sentence(error)});
    return false;
}

bool CallServer::_serve(const Frame& call) {
    // The arguments are used until the procedure returns, with other frames in between.
    _payload.assign(call.payload);
    if (!read_call(_payload, _request)) return false;
    _number = static_cast<int>(call.number);
    _refused.assign(_request.arguments.size() + 1, false);
    _cancellable = _was_cancelled = false;
    std::string error;
    const bool called = _enter(_request.folder, error) && _make_call(error);
    if (_lost || !_leave_batch() || !_send_slot()) return false;
    _forget();
    Frame end{.kind = FrameKind::Failed, .payload = sentence(error)};
    if (called) end = {.kind = FrameKind::Done};
    if (_was_cancelled) end.flags = FRAME_CANCELLED;
    const bool sent = _socket.send(end);
    _watch({});  // the host need not wait for that
    return sent;
}

// The arguments do not outlive their call here.
void CallServer::_forget() {
    explicit_bzero(_payload.data(), _payload.size());
    _socket.forget();
}

// Relative names of files are the host's.
bool CallServer::_enter(std::string_view folder, std::string& error) const {
    if (folder.empty() || chdir(std::string(folder).c_str()) == 0) return true;
    error = "the worker cannot enter the folder " + std::string(folder) + ": " + strerror(errno);
    return false;
}

bool CallServer::_make_call(std::string& error) {
    _watch(_request.procedure);
    CancelRecord record(*_engine);
    an_extfn_api api = {
        .get_value = [](void* handle, std::uint32_t number, an_extfn_value* value) -> std::int16_t {
            return static_cast<CallServer*>(handle)->_read(number, *value) ? 1 : 0;
        },
        .get_piece = [](void* handle, std::uint32_t number, an_extfn_value* value,
                        std::uint32_t offset) -> std::int16_t {
            return static_cast<CallServer*>(handle)->_read_on(number, offset, *value) ? 1 : 0;
        },
        .set_value = [](void* handle, std::uint32_t number, an_extfn_value* value,
                        std::int16_t append) -> std::int16_t {
            return static_cast<CallServer*>(handle)->_write(number, *value, append != 0) ? 1 : 0;
        },
        .set_cancel = [](void* handle,
                         void* given) { static_cast<CallServer*>(handle)->_own(given); },
    };
    _record.store(&record);
    if (_cancelled.load() == _number) record.cancel();
    const CallEnd end = _engine->call(_request.procedure, api, this, {}, error);
    _end_stray_child();
    _was_cancelled = _cancellable && record.cancelled();
    _record.store(nullptr);
    return end == CallEnd::Returned;
}

void CallServer::_own(void* cancel_record) {
    _cancellable = cancel_record != nullptr;
    _record.load()->own(cancel_record);
}

const SentArgument* CallServer::_argument(std::uint32_t number) const {
    const auto& arguments = _request.arguments;
    return number >= 1 && number <= arguments.size() ? &arguments[number - 1] : nullptr;
}

bool CallServer::_read(std::uint32_t number, an_extfn_value& value) {
    const SentArgument* argument = _argument(number);
    if (argument == nullptr) return false;
    value = {};
    value.type = argument->type;
    if (argument->is_null) return true;
    if (argument->piece.empty() && argument->total > 0) return _read_on(number, 0, value);
    value.data = const_cast<char*>(argument->piece.data());
    value.piece_len = static_cast<std::uint32_t>(argument->piece.size());
    value.total_len = argument->total;
    return true;
}

bool CallServer::_read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value) {
    const SentArgument* argument = _argument(number);
    if (argument == nullptr || offset >= argument->total) return false;
    Frame piece;
    if (!_fetch(number, offset, piece) || piece.payload.empty() ||
        piece.payload.size() > argument->total - offset)
        return false;
    value.type = argument->type;
    value.data = const_cast<char*>(piece.payload.data());
    value.piece_len = static_cast<std::uint32_t>(piece.payload.size());
    value.total_len = argument->total;
    return true;
}

// The piece at `offset`, as a rule the next of those that were asked for.
bool CallServer::_fetch(std::uint32_t number, std::uint32_t offset, Frame& piece) {
    const bool is_next = _batch_open && number == _batch_number && offset == _batch_offset;
    if (!is_next) {
        if (!_leave_batch() || !_send_slot() ||
            !_socket.send({.kind = FrameKind::Want, .number = number, .offset = offset})) {
            _lost = true;
            return false;
        }
        _batch_open = true;
        _batch_number = number;
        _batch_offset = offset;
    }
    return _next_piece(piece);
}

bool CallServer::_next_piece(Frame& piece) {
    do {
        if (_lost || _socket.receive(piece) != Received::Frame) return !(_lost = true);
        _note(piece);
    } while (piece.kind == FrameKind::Refuse || piece.kind == FrameKind::Taken);
    const bool is_expected = piece.kind == FrameKind::Piece && piece.number == _batch_number &&
                             piece.offset == _batch_offset;
    _batch_open = (piece.flags & FRAME_MORE) != 0;
    _batch_offset += static_cast<std::uint32_t>(piece.payload.size());
    _lost = !is_expected;
    return is_expected;
}

// While pieces are on their way the host does not listen, so they are taken in before it is sent
// anything.
bool CallServer::_leave_batch() {
    Frame piece;
    while (_batch_open)
        if (!_next_piece(piece)) return false;
    return !_lost;
}

bool CallServer::_write(std::uint32_t number, const an_extfn_value& value, bool append) {
    _end_stray_child();
    if (number >= _refused.size()) return false;  // the call has no such value
    // What `value` points at may be the piece that came last, which waiting ones would overwrite.
    std::string kept;
    std::string_view bytes;
    if (value.data != nullptr) bytes = {static_cast<const char*>(value.data), value.piece_len};
    if (_batch_open) bytes = kept = bytes;
    if (_lost || !_leave_batch()) return false;
    Frame frame{.kind = FrameKind::Set, .type = value.type, .number = number};
    if (append) frame.flags = FRAME_APPEND;
    if (value.data == nullptr) frame.flags = FRAME_NULL;
    if (!append) _refused[number] = false;
    const bool shares = _shared.is_there() && bytes.size() >= shared_from &&
                        bytes.size() <= SharedPieces::slot_size;
    if (!(shares ? _share(frame, bytes) : _pass(frame, bytes))) _lost = true;
    return !_lost && !_refused[number];
}

// Through the socket, in as many frames as it takes.
bool CallServer::_pass(Frame set, std::string_view bytes) {
    // What begins was not refused yet.
    const bool adds = (set.flags & FRAME_APPEND) != 0;
    if (!_send_slot() || (adds && !_listen())) return false;
    if (adds && _refused[set.number]) return true;
    do {
        set.payload = bytes.substr(0, longest_piece);
        bytes.remove_prefix(set.payload.size());
        if (!_socket.hold(set)) return false;
        set.flags |= FRAME_APPEND;
    } while (!bytes.empty());
    return true;
}

// The host is not waited for after each piece: it tells when it has had enough.
bool CallServer::_listen() {
    Frame frame;
    for (;;) {
        const Received received = _socket.receive_if_there(frame);
        if (received == Received::Nothing) return true;
        if (received != Received::Frame) return false;
        _note(frame);
    }
}

// What the host says about values, whenever it comes.
void CallServer::_note(const Frame& frame) {
    if (frame.kind == FrameKind::Refuse && frame.number < _refused.size())
        _refused[frame.number] = true;
    if (frame.kind == FrameKind::Taken && frame.number < SharedPieces::slots)
        _free_slots |= 1U << frame.number;
}

bool CallServer::_find_slot() {
    Frame frame;
    while (_free_slots == 0) {
        if (_socket.receive(frame) != Received::Frame) return false;
        _note(frame);
    }
    _filling.offset = static_cast<std::uint32_t>(std::countr_zero(_free_slots));
    return true;
}

// Several pieces go into one slot, because it is waking the host that costs the most.
bool CallServer::_share(const Frame& set, std::string_view bytes) {
    const bool adds = (set.flags & FRAME_APPEND) != 0 && set.number == _filling.number &&
                      set.type == _filling.type &&
                      _filled + bytes.size() <= SharedPieces::slot_size;
    if (!adds && !_send_slot()) return false;
    if (_filled == 0) {
        _filling = set;
        _filling.kind = FrameKind::Share;
        if (!_find_slot()) return false;
    }
    memcpy(_shared.slot(_filling.offset) + _filled, bytes.data(), bytes.size());
    _filled += static_cast<std::uint32_t>(bytes.size());
    // A host that waits gets what there is.
    if (_free_slots != all_slots && !_listen()) return false;
    return _free_slots != all_slots || _send_slot();
}

bool CallServer::_send_slot() {
    if (_filled == 0) return true;
    _free_slots &= ~(1U << _filling.offset);
    _filling.payload = {reinterpret_cast<const char*>(&_filled), sizeof _filled};
    const bool sent = _socket.send(_filling);
    _filled = 0;
    return sent;
}

// A child that could not execute its program comes back out of the procedure as a second worker.
void CallServer::_end_stray_child() const {
    if (getpid() != _process) _exit(127);
}

}  // namespace host
