#include "host/worker/frames.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace host {

namespace {

// As a header lies on the wire.
struct Wire {
    std::uint32_t length;
    std::uint8_t kind;
    std::uint8_t flags;
    std::uint16_t type;
    std::uint32_t number;
    std::uint32_t offset;
};
static_assert(sizeof(Wire) == sizeof(FrameHeader));

// As an argument lies in a Call, in front of its piece.
struct WireArgument {
    std::uint32_t total;
    std::uint32_t length;
    std::uint16_t type;
    std::uint16_t is_null;
};
static_assert(sizeof(WireArgument) == 12);

struct Rule {
    FrameKind kind;
    Sender sender;
    unsigned flags;         // that it may have
    std::uint32_t longest;  // payload
};

constexpr Rule rules[] = {
    {FrameKind::Hello, Sender::Host, 0, longest_path},
    {FrameKind::Call, Sender::Host, 0, longest_payload},
    {FrameKind::Piece, Sender::Host, FRAME_MORE, longest_piece},
    {FrameKind::Refuse, Sender::Host, 0, 0},
    {FrameKind::Taken, Sender::Host, 0, 0},
    {FrameKind::Ready, Sender::Worker, 0, 0},
    {FrameKind::Failed, Sender::Worker, 0, longest_sentence},
    {FrameKind::Want, Sender::Worker, 0, 0},
    {FrameKind::Set, Sender::Worker, FRAME_APPEND | FRAME_NULL, longest_piece},
    {FrameKind::Share, Sender::Worker, FRAME_APPEND, sizeof(std::uint32_t)},
    {FrameKind::Done, Sender::Worker, FRAME_CANCELLED, 0},
};

template <typename Record>
void put(std::string& text, const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    text.append(reinterpret_cast<const char*>(&record), sizeof record);
}

template <typename Record>
bool take(std::string_view& text, Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    if (text.size() < sizeof record) return false;
    memcpy(&record, text.data(), sizeof record);
    text.remove_prefix(sizeof record);
    return true;
}

void put_text(std::string& payload, std::string_view text) {
    put(payload, static_cast<std::uint32_t>(text.size()));
    payload.append(text);
}

bool take_bytes(std::string_view& payload, std::uint32_t length, std::string_view& bytes) {
    if (payload.size() < length) return false;
    bytes = payload.substr(0, length);
    payload.remove_prefix(length);
    return true;
}

bool take_text(std::string_view& payload, std::string_view& text) {
    std::uint32_t length = 0;
    return take(payload, length) && take_bytes(payload, length, text);
}

bool is_possible(const SentArgument& argument) {
    const std::size_t sent = argument.piece.size();
    if (sent > argument.total || sent > longest_piece) return false;
    if (argument.is_null) return argument.total == 0;
    // A number is never in pieces.
    return argument.type != EXTFN_TYPE_INT32 || sent == sizeof(std::int32_t);
}

bool take_argument(std::string_view& payload, SentArgument& argument) {
    WireArgument wire{};
    if (!take(payload, wire) || !take_bytes(payload, wire.length, argument.piece)) return false;
    argument.type = wire.type;
    argument.is_null = wire.is_null != 0;
    argument.total = wire.total;
    return wire.is_null <= 1 && is_possible(argument);
}

}  // namespace

FrameHeader header_of(const Frame& frame) {
    const Wire wire{static_cast<std::uint32_t>(frame.payload.size()),
                    static_cast<std::uint8_t>(frame.kind),
                    frame.flags,
                    frame.type,
                    frame.number,
                    frame.offset};
    FrameHeader header;
    memcpy(header.data(), &wire, sizeof wire);
    return header;
}

bool read_header(const FrameHeader& header, Sender sender, Frame& frame, std::uint32_t& length) {
    Wire wire{};
    memcpy(&wire, header.data(), sizeof wire);
    const auto* const rule = std::find_if(std::begin(rules), std::end(rules), [&](const Rule& r) {
        return static_cast<std::uint8_t>(r.kind) == wire.kind && r.sender == sender;
    });
    if (rule == std::end(rules) || wire.length > rule->longest) return false;
    if ((wire.flags & ~rule->flags) != 0) return false;
    if ((wire.flags & FRAME_NULL) != 0 && (wire.length > 0 || (wire.flags & FRAME_APPEND) != 0))
        return false;
    frame = {rule->kind, wire.flags, wire.type, wire.number, wire.offset, {}};
    length = wire.length;
    return true;
}

bool write_call(const CallRequest& request, std::string& payload) {
    payload.clear();
    put_text(payload, request.procedure);
    put_text(payload, request.folder);
    std::size_t needed = payload.size() + request.arguments.size() * sizeof(WireArgument);
    std::size_t whole = needed;
    for (const SentArgument& argument : request.arguments) whole += argument.piece.size();
    // Growing would leave copies behind, of a password too.
    payload.reserve(std::min<std::size_t>(whole, longest_payload));
    for (const SentArgument& argument : request.arguments) {
        std::string_view piece = argument.piece;
        const bool fits = needed + piece.size() <= longest_payload;
        if (!fits && argument.type == EXTFN_TYPE_INT32) return false;
        if (!fits) piece = {};
        needed += piece.size();
        put(payload, WireArgument{argument.total, static_cast<std::uint32_t>(piece.size()),
                                  argument.type, argument.is_null});
        payload.append(piece);
    }
    return payload.size() <= longest_payload;
}

bool read_call(std::string_view payload, CallRequest& request) {
    request = {};
    if (!take_text(payload, request.procedure) || !take_text(payload, request.folder)) return false;
    while (!payload.empty())
        if (!take_argument(payload, request.arguments.emplace_back())) return false;
    return true;
}

}  // namespace host
