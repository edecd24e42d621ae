#include "host/worker/frames.h"

#include <cstring>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/worker/framesocket.h"

using namespace host;
using Received = FrameSocket::Received;

namespace {

constexpr std::uint32_t huge = UINT32_MAX;

TEST(Frames, are_taken_from_the_side_that_sends_them_within_their_limits) {
    struct Row {
        Sender sender;
        FrameKind kind;
        std::uint8_t flags;
        std::uint32_t length;
        bool taken;
    };
    for (const Row& row : {
             Row{Sender::Host, FrameKind::Call, 0, longest_payload, true},
             {Sender::Host, FrameKind::Call, 0, longest_payload + 1, false},
             {Sender::Worker, FrameKind::Call, 0, 0, false},
             {Sender::Host, FrameKind::Piece, FRAME_MORE, longest_piece, true},
             {Sender::Host, FrameKind::Piece, FRAME_APPEND, 1, false},
             {Sender::Host, FrameKind::Refuse, 0, 1, false},
             {Sender::Host, FrameKind::Hello, 0, huge, false},
             {Sender::Worker, FrameKind::Set, FRAME_APPEND, longest_piece, true},
             {Sender::Worker, FrameKind::Set, 0, longest_piece + 1, false},
             {Sender::Worker, FrameKind::Set, FRAME_NULL, 0, true},
             {Sender::Worker, FrameKind::Set, FRAME_NULL, 1, false},
             {Sender::Worker, FrameKind::Set, FRAME_NULL | FRAME_APPEND, 0, false},
             {Sender::Host, FrameKind::Set, 0, 0, false},
             {Sender::Worker, FrameKind::Want, 0, 1, false},
             {Sender::Worker, FrameKind::Done, FRAME_CANCELLED, 0, true},
             {Sender::Worker, FrameKind::Done, FRAME_NULL, 0, false},
             {Sender::Worker, FrameKind{0}, 0, 0, false},
             {Sender::Worker, FrameKind{255}, 0, 0, false},
         }) {
        FrameHeader header = header_of({.kind = row.kind, .flags = row.flags, .number = 7});
        memcpy(header.data(), &row.length, sizeof row.length);
        Frame frame;
        std::uint32_t length = 0;
        EXPECT_EQ(row.taken, read_header(header, row.sender, frame, length))
            << static_cast<int>(row.kind) << " " << row.length;
        EXPECT_EQ(row.taken ? 7U : 0U, frame.number);
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

TEST(Frames, carry_no_argument_that_cannot_be) {
    for (const SentArgument& argument : {SentArgument{EXTFN_TYPE_STRING, false, 2, "abc"},
                                         {EXTFN_TYPE_STRING, true, 1, ""},
                                         {EXTFN_TYPE_INT32, false, 4, ""},
                                         {EXTFN_TYPE_INT32, false, 3, "abc"}}) {
        std::string payload;
        ASSERT_TRUE(write_call({"xp_x", "", {argument}}, payload));
        CallRequest read;
        EXPECT_FALSE(read_call(payload, read)) << argument.piece;
    }
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
