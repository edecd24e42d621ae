#include "host/worker/calldriver.h"

#include <algorithm>
#include <cstring>

namespace host {

using Received = FrameSocket::Received;

namespace {

Talk as_talk(Received received) {
    switch (received) {
    case Received::Broken:
        return Talk::Broken;
    case Received::GaveUp:
        return Talk::GaveUp;
    default:
        return Talk::Ended;
    }
}

}  // namespace

Talk greet(FrameSocket& socket, std::string_view path, const SharedPieces& shared,
           std::string& error) {
    if (path.size() > longest_path) {
        error = "the library's path is too long";
        return Talk::Failed;
    }
    socket.send({.kind = FrameKind::Hello,
                 .number = frames_version,
                 .offset = static_cast<std::uint32_t>(shared.number()),
                 .payload = path});
    Frame answer;
    const Received received = socket.receive(answer);
    if (received != Received::Frame) return as_talk(received);
    if (answer.kind == FrameKind::Ready && answer.number == frames_version) return Talk::Done;
    if (answer.kind != FrameKind::Failed) return Talk::Broken;
    error = answer.payload;
    return Talk::Failed;
}

// Arguments are numbered without a gap, and the first pieces go along with the call: most calls
// need no others.
bool CallDriver::_ask(std::uint32_t number, std::string_view procedure, std::string_view folder,
                      std::string& error) {
    CallRequest request{procedure, folder, {}};
    an_extfn_value value{};
    for (std::uint32_t i = 1; _api.get_value(_handle, i, &value) != 0; ++i) {
        SentArgument argument{value.type, value.data == nullptr, 0, {}};
        if (!argument.is_null) {
            argument.total = value.total_len;
            argument.piece = {static_cast<const char*>(value.data),
                              std::min(value.piece_len, longest_piece)};
        }
        request.arguments.push_back(argument);
    }
    _refused.resize(request.arguments.size() + 1);
    std::string payload;
    const bool fits = write_call(request, payload);
    if (fits) _socket.send({.kind = FrameKind::Call, .number = number, .payload = payload});
    explicit_bzero(payload.data(), payload.size());  // there may be a password in it
    if (!fits) error = "too many arguments for one call";
    return fits;
}

Talk CallDriver::run(std::uint32_t number, std::string_view procedure, std::string_view folder,
                     std::string& error) {
    if (!_ask(number, procedure, folder, error)) return Talk::Failed;
    Frame frame;
    for (;;) {
        if (!_go_on()) return Talk::GaveUp;
        // A send that failed shows here, too.
        const Received received = _socket.receive(frame);
        if (received != Received::Frame) return as_talk(received);
        switch (frame.kind) {
        case FrameKind::Want:
            if (!_give(frame)) return Talk::GaveUp;
            break;
        case FrameKind::Set:
            _take(frame);
            break;
        case FrameKind::Share:
            if (!_take_shared(frame)) return Talk::Broken;
            break;
        case FrameKind::Done:
            _was_cancelled = (frame.flags & FRAME_CANCELLED) != 0;
            _settle();
            return Talk::Done;
        case FrameKind::Failed:
            error = frame.payload;
            return Talk::Failed;
        default:
            return Talk::Broken;
        }
    }
}

bool CallDriver::_give(const Frame& want) {
    Frame frame{.kind = FrameKind::Piece, .number = want.number, .offset = want.offset};
    for (unsigned left = pieces_per_want; left > 0; --left) {
        an_extfn_value value{};
        frame.payload = {};
        if (_api.get_piece(_handle, frame.number, &value, frame.offset) != 0)
            frame.payload = {static_cast<const char*>(value.data),
                             std::min(value.piece_len, longest_piece)};
        const auto length = static_cast<std::uint32_t>(frame.payload.size());
        const bool more = left > 1 && length > 0 && length < value.total_len - frame.offset;
        frame.flags = more ? FRAME_MORE : 0;
        // When the worker has ended there may still be something to read that it said before.
        if (!_go_on()) return false;
        if (!_socket.send(frame) || !more) return true;
        frame.offset += length;
    }
    return true;
}

// The worker hears of a refusal some pieces later, and those are dropped here.
void CallDriver::_take(const Frame& set) {
    const bool append = (set.flags & FRAME_APPEND) != 0;
    const bool exists = set.number < _refused.size();
    if (append && (!exists || _refused[set.number])) return;
    an_extfn_value value{};
    value.type = set.type;
    // An empty value has no memory, and is not NULL.
    if ((set.flags & FRAME_NULL) == 0)
        value.data = const_cast<char*>(set.payload.empty() ? "" : set.payload.data());
    value.piece_len = static_cast<std::uint32_t>(set.payload.size());
    if (std::int32_t status = 0;
        set.number == 0 && set.type == EXTFN_TYPE_INT32 && set.payload.size() == sizeof status) {
        memcpy(&status, set.payload.data(), sizeof status);
        _status = status;
    }
    const bool taken = exists && _api.set_value(_handle, set.number, &value, append ? 1 : 0) != 0;
    if (exists) _refused[set.number] = taken ? std::nullopt : std::optional(set.type);
    if (taken) return;
    _socket.send({.kind = FrameKind::Refuse, .number = set.number});
}

bool CallDriver::_take_shared(const Frame& share) {
    std::uint32_t length = 0;
    const std::uint32_t slot = share.offset;
    if (!_shared.is_there() || share.payload.size() != sizeof length) return false;
    memcpy(&length, share.payload.data(), sizeof length);
    if (slot >= SharedPieces::slots || length > SharedPieces::slot_size) return false;
    Frame set = share;
    set.payload = {_shared.slot(slot), length};
    _take(set);
    _socket.send({.kind = FrameKind::Taken, .number = slot});
    return true;
}

// The procedure that hears of a refusal makes the value NULL. This one had returned before.
void CallDriver::_settle() {
    for (std::uint32_t number = 0; number < _refused.size(); ++number) {
        if (!_refused[number]) continue;
        an_extfn_value value{};
        value.type = *_refused[number];
        _api.set_value(_handle, number, &value, 0);
    }
}

}  // namespace host
