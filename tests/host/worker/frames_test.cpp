#include "host/worker/frames.h"

#include <cstring>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/worker/framesocket.h"
#include "tests/world.h"

using namespace host;
using Received = FrameSocket::Received;

namespace {

/// What each kind of frame may be, as docs/worker.md has it.
struct Allowed {
    Sender sender;
    FrameKind kind;
    std::uint32_t longest;
    std::vector<unsigned> flags;
};
const Allowed allowed[] = {
    {Sender::Host, FrameKind::Hello, 4096, {0}},
    {Sender::Host, FrameKind::Call, 131072, {0}},
    {Sender::Host, FrameKind::Piece, 65536, {0, FRAME_MORE}},
    {Sender::Host, FrameKind::Refuse, 0, {0}},
    {Sender::Host, FrameKind::Taken, 0, {0}},
    {Sender::Worker, FrameKind::Ready, 0, {0}},
    {Sender::Worker, FrameKind::Failed, 8192, {0}},
    {Sender::Worker, FrameKind::Want, 0, {0}},
    {Sender::Worker, FrameKind::Set, 65536, {0, FRAME_APPEND}},
    {Sender::Worker, FrameKind::Set, 0, {FRAME_NULL}},
    {Sender::Worker, FrameKind::Share, 4, {0, FRAME_APPEND}},
    {Sender::Worker, FrameKind::Done, 0, {0, FRAME_CANCELLED}},
};

bool may_be(Sender sender, unsigned kind, unsigned flags, std::uint32_t length) {
    return std::any_of(std::begin(allowed), std::end(allowed), [&](const Allowed& row) {
        return row.sender == sender && static_cast<unsigned>(row.kind) == kind &&
               length <= row.longest && std::count(row.flags.begin(), row.flags.end(), flags) != 0;
    });
}

TEST(Frames, are_taken_as_documented_whatever_a_header_says) {
    std::vector<std::uint32_t> lengths = {UINT32_MAX, 1U << 31};
    for (const Allowed& row : allowed) {
        lengths.push_back(row.longest);
        lengths.push_back(row.longest + 1);
    }
    for (const Sender sender : {Sender::Host, Sender::Worker})
        for (unsigned bits = 0; bits < 0x10000; ++bits)
            for (const std::uint32_t length : lengths) {
                const unsigned kind = bits & 0xFF;
                const unsigned flags = bits >> 8;
                FrameHeader header = header_of({.kind = static_cast<FrameKind>(kind),
                                                .flags = static_cast<std::uint8_t>(flags)});
                memcpy(header.data(), &length, sizeof length);
                Frame frame;
                std::uint32_t read = 0;
                if (read_header(header, sender, frame, read) != may_be(sender, kind, flags, length))
                    FAIL() << "kind " << kind << ", flags " << flags << ", length " << length;
            }
}

TEST(Frames, carry_a_call_and_no_part_of_one) {
    const std::string text(longest_piece, 't');
    const std::int32_t number = 5;
    const std::string_view bytes(reinterpret_cast<const char*>(&number), sizeof number);
    const CallRequest sent{"xp_x",
                           "/folder",
                           {{EXTFN_TYPE_STRING, false, 1 << 20, text},
                            {EXTFN_TYPE_STRING, true, 0, {}},
                            {EXTFN_TYPE_STRING, false, longest_piece, text},
                            {EXTFN_TYPE_INT32, false, 4, bytes},
                            {EXTFN_TYPE_STRING, false, 0, {}}}};
    std::string payload;
    ASSERT_TRUE(write_call(sent, payload));
    CallRequest read;
    ASSERT_TRUE(read_call(payload, read));
    EXPECT_EQ(sent.procedure, read.procedure);
    EXPECT_EQ(sent.folder, read.folder);
    ASSERT_EQ(sent.arguments.size(), read.arguments.size());
    for (std::size_t i = 0; i < sent.arguments.size(); ++i) {
        EXPECT_EQ(sent.arguments[i].total, read.arguments[i].total);
        EXPECT_EQ(sent.arguments[i].is_null, read.arguments[i].is_null);
        EXPECT_EQ(i == 2 ? "" : sent.arguments[i].piece, read.arguments[i].piece)
            << "one piece too many does not fit";
    }
    // Cut between two arguments it is a call with fewer of them.
    std::size_t whole = 0;
    for (std::size_t cut = 0; cut < payload.size(); cut += cut < 100 ? 1 : 997)
        whole += read_call(std::string_view(payload).substr(0, cut), read) ? 1U : 0U;
    EXPECT_EQ(1U, whole);
}

/// Takes a text off, with its length in front.
bool skip_text(std::string_view& payload) {
    std::uint32_t length = 0;
    if (payload.size() < sizeof length) return false;
    memcpy(&length, payload.data(), sizeof length);
    if (length > payload.size() - sizeof length) return false;
    payload.remove_prefix(sizeof length + length);
    return true;
}

/// Takes an argument off: the bytes of all of it and of this piece, the type, 1 for NULL, the
/// piece.
bool skip_argument(std::string_view& payload) {
    std::uint32_t total = 0;
    std::uint32_t length = 0;
    std::uint16_t kind[2] = {};
    if (payload.size() < 12) return false;
    memcpy(&total, &payload[0], sizeof total);
    memcpy(&length, &payload[4], sizeof length);
    memcpy(kind, &payload[8], sizeof kind);
    payload.remove_prefix(12);
    if (length > payload.size() || length > total || kind[1] > 1) return false;
    payload.remove_prefix(length);
    return kind[1] == 1 ? total == 0 : kind[0] != EXTFN_TYPE_INT32 || length == 4;
}

/// Whether frames.h lets a Call carry this.
bool may_be_call(std::string_view payload) {
    bool good = skip_text(payload) && skip_text(payload);
    while (good && !payload.empty()) good = skip_argument(payload);
    return good;
}

TEST(Frames, of_up_to_eight_words_are_a_call_or_refused) {
    const auto number = [](std::uint32_t value) {
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    };
    const std::string zero = number(0), four = number(4), most = number(UINT32_MAX),
                      text = number(EXTFN_TYPE_STRING), integer = number(EXTFN_TYPE_INT32),
                      null = number(EXTFN_TYPE_INT32 | 1U << 16);
    EXPECT_TRUE(world::holds_for_all(
        {zero, four, most, text, integer, null, "x"}, 8, [&](const std::string& payload) {
            CallRequest request;
            if (!read_call(payload, request)) return !may_be_call(payload);
            std::string again;
            return may_be_call(payload) && write_call(request, again) && again == payload;
        }));
}

/// Two ends of a socket pair.
struct Ends {
    Ends() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, number)); }
    ~Ends() {
        close(number[0]);
        close(number[1]);
    }
    Ends(const Ends&) = delete;
    int number[2] = {-1, -1};
};

TEST(FrameSocket, waits_for_each_byte_and_keeps_the_order) {
    Ends writer;
    FrameSocket sender(writer.number[0], Sender::Worker);
    ASSERT_TRUE(sender.hold({.kind = FrameKind::Piece, .number = 1, .payload = "held"}));
    ASSERT_TRUE(sender.send({.kind = FrameKind::Call, .number = 2, .payload = "sent"}));
    std::string wire(100, '\0');
    wire.resize(static_cast<std::size_t>(recv(writer.number[1], wire.data(), wire.size(), 0)));

    Ends ends;
    std::size_t fed = 0;
    const auto feed_one = [&](short) {
        return fed < wire.size() && write(ends.number[1], &wire[fed++], 1) == 1;
    };
    FrameSocket receiver(ends.number[0], Sender::Host, feed_one);
    Frame frame;
    for (const char* payload : {"held", "sent"}) {
        ASSERT_EQ(Received::Frame, receiver.receive(frame));
        EXPECT_EQ(payload, frame.payload);
    }
    EXPECT_EQ(Received::Nothing, receiver.receive_if_there(frame));
    EXPECT_EQ(Received::GaveUp, receiver.receive(frame));
    shutdown(ends.number[1], SHUT_WR);
    EXPECT_EQ(Received::End, receiver.receive_if_there(frame));
}

/// The kinds and payloads of the frames in `wire`, which comes in two pieces, up to its end.
std::string heard(const std::string& wire, std::size_t cut) {
    Ends ends;
    bool all_sent = false;
    const auto deliver = [&](std::size_t from, std::size_t length) {
        return write(ends.number[1], &wire[from], length) == static_cast<ssize_t>(length);
    };
    FrameSocket socket(ends.number[0], Sender::Host, [&](short) {
        if (all_sent) return true;
        all_sent = true;
        return deliver(cut, wire.size() - cut) && shutdown(ends.number[1], SHUT_WR) == 0;
    });
    EXPECT_TRUE(deliver(0, cut));
    std::string words;
    Frame frame;
    Received received = Received::Frame;
    while ((received = socket.receive(frame)) == Received::Frame)
        words += std::to_string(static_cast<int>(frame.kind)).append(frame.payload) + ' ';
    return words + (received == Received::End ? "end" : "not the end");
}

TEST(FrameSocket, delivers_whole_frames_wherever_the_stream_is_cut) {
    std::string wire;
    std::string words;
    std::size_t whole = 0;  // bytes of whole frames
    for (const Frame& frame : {Frame{.kind = FrameKind::Hello, .payload = "library"},
                               {.kind = FrameKind::Call, .payload = "call"},
                               {.kind = FrameKind::Taken},
                               {.kind = FrameKind::Piece, .payload = "piece"}}) {
        const FrameHeader header = header_of(frame);
        wire.append(header.data(), header.size()).append(frame.payload);
        for (std::size_t end = whole; end < wire.size(); ++end)
            for (std::size_t cut = 0; cut <= end; ++cut)
                ASSERT_EQ(words + "end", heard(wire.substr(0, end), cut)) << end << ' ' << cut;
        whole = wire.size();
        words += std::to_string(static_cast<int>(frame.kind)).append(frame.payload) + ' ';
    }
}

TEST(FrameSocket, tells_nonsense_from_the_end) {
    Ends ends;
    FrameSocket sender(ends.number[0], Sender::Worker);
    FrameSocket receiver(ends.number[1], Sender::Worker);
    Frame frame;
    ASSERT_TRUE(sender.send({.kind = FrameKind::Call}));
    EXPECT_EQ(Received::Broken, receiver.receive(frame)) << "a worker calls nobody";
    shutdown(ends.number[1], SHUT_RDWR);
    EXPECT_FALSE(sender.send({.kind = FrameKind::Call})) << "and no SIGPIPE";
}

}  // namespace
