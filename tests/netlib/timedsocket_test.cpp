#include "netlib/timedsocket.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "netlib/ipaddress.h"
#include "tests/netlib/scripted_calls.h"

namespace {

constexpr SOCKET no_such_descriptor = 100000;

std::string repeat(const std::string& text, int times) {
    std::string repeated;
    while (times-- > 0) repeated += text;
    return repeated;
}

TEST(TimedSocket, gives_up_in_the_slice_in_which_its_timeout_passes) {
    const struct {
        int timeout_ms, slices;
    } cases[] = {{1, 1}, {250, 1}, {259, 1}, {260, 2}, {1000, 4}, {1010, 5}, {60000, 240}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.timeout_ms);
        TimedSocket socket(no_such_descriptor, SOCK_TCP, false);
        socket.setTimeout(c.timeout_ms);
        char byte;
        Script script(repeat("recv!EAGAIN silence ", c.slices) +
                      repeat("connect!EALREADY silence ", c.slices));
        EXPECT_EQ(-1, socket.recv(&byte, 1));
        EXPECT_EQ(c.slices * 250, Script::elapsed_ms());
        EXPECT_EQ(-1, socket.connect(IPAddress(uint32{1})));
        EXPECT_EQ(c.slices * 500, Script::elapsed_ms());
    }
}

TEST(TimedSocket, without_a_timeout_waits_without_end) {
    for (const int32 no_limit : {0, -1}) {
        TimedSocket socket(no_such_descriptor, SOCK_TCP, false);
        socket.setTimeout(no_limit);
        Script script(repeat("send!EAGAIN silence ", 2000) + "send=1");
        EXPECT_EQ(1, socket.send("x", 1));
    }
}

TEST(TimedSocket, keeps_its_timeout_under_interruptions) {
    TimedSocket socket(no_such_descriptor, SOCK_TCP, false);
    socket.setTimeout(250);
    Script script("recv!EAGAIN poll!EINTR@100*3 silence");
    char byte;
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_EQ((std::vector<int>{250, 150, 50, 0}), script.poll_timeouts);
    EXPECT_TRUE(socket.didTimeout());
}

TEST(TimedSocket, reports_a_timeout_once_and_forgets_it_with_the_next_operation) {
    TimedSocket socket(no_such_descriptor, SOCK_TCP, false);
    socket.setTimeout(1);
    char byte;
    Script script("recv!EAGAIN silence recv!EAGAIN silence recv!EBADF");
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_EQ(uint32{ETIMEDOUT}, socket.getLastError().code());
    errno = EDOM;
    EXPECT_EQ(uint32{EDOM}, socket.getLastError().code());

    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_FALSE(socket.didTimeout());
    EXPECT_EQ(uint32{EBADF}, socket.getLastError().code());
}

// The one test with the system's own clock and poll; it ends with the first slice of its wait.
TEST(TimedSocket, gives_up_on_a_silent_peer) {
    SOCKET ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    TimedSocket socket(ends[0], SOCK_TCP, false);
    Socket peer(ends[1], SOCK_TCP, false);
    ASSERT_EQ(0, socket.Socket::set_blocking_state(false));
    socket.setTimeout(250);
    char byte;
    EXPECT_EQ(-1, socket.recv(&byte, 1));
    EXPECT_TRUE(socket.didTimeout());
    EXPECT_EQ(uint32{ETIMEDOUT}, socket.getLastError().code());
    socket.close();
    peer.close();
}

TEST(TimedSocket, leaves_the_blocking_mode_alone) {
    TimedSocket socket(no_such_descriptor, SOCK_TCP, false);
    Script nothing_is_called("");
    EXPECT_EQ(0, socket.set_blocking_state(false));
    EXPECT_TRUE(socket.get_blocking_state());
}

}  // namespace
