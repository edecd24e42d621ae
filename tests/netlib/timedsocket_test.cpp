#include "netlib/timedsocket.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "netlib/ipaddress.h"
#include "netlib/smtpsocket.h"
#include "tests/netlib/scripted_calls.h"

namespace {

char byte;

TimedSocket with_timeout(int32 ms) {
    TimedSocket socket(100000, SOCK_TCP, false);
    socket.setTimeout(ms);
    return socket;
}

std::string repeat(const std::string& text, int times) {
    return times == 0 ? "" : text + repeat(text, times - 1);
}

TEST(TimedSocket, gives_up_in_the_slice_in_which_its_timeout_passes) {
    for (const auto& [timeout_ms, slices] : {std::pair{1, 1}, {259, 1}, {260, 2}, {60000, 240}}) {
        SCOPED_TRACE(timeout_ms);
        TimedSocket socket = with_timeout(timeout_ms);
        Script script(repeat("recv!EAGAIN silence ", slices) +
                      repeat("connect!EALREADY silence ", slices));
        EXPECT_EQ(-1, socket.recv(&byte, 1));
        EXPECT_EQ(slices * 250, Script::elapsed_ms());
        EXPECT_EQ(-1, socket.connect(IPAddress(uint32{1})));
        EXPECT_EQ(slices * 500, Script::elapsed_ms());
    }
}

TEST(TimedSocket, without_a_timeout_waits_without_end_and_in_the_same_blocking_mode) {
    for (const int32 no_limit : {0, -1}) {
        TimedSocket socket = with_timeout(no_limit);
        Script script(repeat("send!EAGAIN silence ", 2000) + "send=1");
        EXPECT_EQ(0, socket.set_blocking_state(false));  // calls nothing
        EXPECT_TRUE(socket.get_blocking_state());
        EXPECT_EQ(1, socket.send("x", 1));
    }
}

TEST(TimedSocket, keeps_its_timeout_under_interruptions_and_reports_it_once) {
    TimedSocket socket = with_timeout(250);
    Script script("recv!EAGAIN poll!EINTR@100*3 silence recv!EAGAIN silence recv!EBADF");
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_EQ((std::vector<int>{250, 250, 150, 50}), script.poll_timeouts);
    EXPECT_TRUE(socket.didTimeout());
    EXPECT_EQ(uint32{ETIMEDOUT}, socket.getLastError().code());
    errno = EDOM;
    EXPECT_EQ(uint32{EDOM}, socket.getLastError().code());
    // One that nobody asked about is forgotten with the next operation.
    for (int i = 0; i < 2; ++i) EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_FALSE(socket.didTimeout());
    EXPECT_EQ(uint32{EBADF}, socket.getLastError().code());
}

TEST(SMTPSocket, pushes_what_would_wait_for_an_acknowledgement) {
    SMTPSocket socket(100000, SOCK_TCP, false);
    const struct {
        std::vector<unsigned int> sent;
        bool own_words;  // TLS says something during the reply
        std::string calls;
    } steps[] = {
        {{}, false, "poll:R recv=1"},                              // the greeting
        {{2}, false, "send=2 segment=2 poll:R recv=1"},            // asked once
        {{3}, false, "send=3 setsockopt=0*2 poll:R recv=1"},       // two segments
        {{1, 1}, false, "send=1*2 setsockopt=0*2 poll:R recv=1"},  // the second is held back
        {{1}, true, "send=1 poll:R recv=1 send=1 setsockopt=0*2 recv=1"},
        {{1}, false, "send=1 setsockopt=0*2 poll:R recv=1"},  // behind what nobody has answered
        {{1}, false, "send=1 poll:R recv=1"},
    };
    for (const auto& step : steps) {
        Script script(step.calls);
        for (const unsigned int size : step.sent) socket.send("abc", size);
        const SMTPSocket::Reply reply(socket);
        EXPECT_EQ(1, socket.recv(&byte, 1));
        if (!step.own_words) continue;
        socket.send("x", 1);
        EXPECT_EQ(1, socket.recv(&byte, 1));
    }
}

TEST(SMTPSocket, waits_for_a_reply_no_longer_than_its_time_out) {
    SMTPSocket socket(100000, SOCK_TCP, false);
    socket.setTimeout(1000);
    Script script("silence " + repeat("recv!EAGAIN silence ", 3));
    const SMTPSocket::Reply reply(socket);
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_TRUE(socket.didTimeout());
    EXPECT_EQ(1000, Script::elapsed_ms());
}

}  // namespace
