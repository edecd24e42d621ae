#include "netlib/selectlist.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "tests/netlib/scripted_calls.h"

namespace {

using Descriptors = std::vector<SOCKET>;

Descriptors descriptors(Socket_list& list) {
    Descriptors found;
    for (Socket_iter iter(list); !iter.is_past(); iter.next())
        found.push_back(iter.get()->getSocket());
    return found;
}

Socket adopted(SOCKET s) {
    return Socket(s, SOCK_TCP, false);
}

TEST(SelectList, leaves_exactly_the_ready_sockets_and_sets_the_failed_aside) {
    SelectList list;
    for (SOCKET s : {101, 102, 103, 104, 107}) list.addReadSocket(adopted(s));
    for (SOCKET s : {101, 105, 106}) list.addWriteSocket(adopted(s));
    Script script("poll:R,-,RE,H,N,-,W,E poll!EINVAL silence");
    EXPECT_EQ(6, list.select_us(1999999));
    EXPECT_EQ((Descriptors{101}), descriptors(list.getReadList()));
    EXPECT_EQ((Descriptors{105}), descriptors(list.getWriteList()));
    EXPECT_EQ((Descriptors{103, 107, 106}), descriptors(list.getErrorList()));
    EXPECT_TRUE(list.select(7) == -1 && errno == EINVAL);
    EXPECT_EQ((Descriptors{101}), descriptors(list.getReadList())) << "after a failed poll";
    EXPECT_EQ(0, list.select(0xFFFFFFFF));
    EXPECT_EQ((std::vector<int>{1999, 7, 0x7FFFFFFF}), script.poll_timeouts);
    EXPECT_TRUE(list.getReadList().is_empty());
}

TEST(SelectList, knows_a_closed_socket_and_does_not_wait_for_one) {
    SelectList list;
    Socket socket = adopted(101);
    list.addReadSocket(socket);
    list.addWriteSocket(socket);
    Script script("close=0 poll:W");
    socket.close();
    list.removeReadSocket(socket);
    EXPECT_TRUE(list.getReadList().is_empty());
    EXPECT_EQ(1, list.select(5000)) << "the other entry stays";
    list.addReadSocket(socket);
    errno = 0;
    EXPECT_TRUE(list.select(0xFFFFFFFF) == -1 && errno == EBADF);
    EXPECT_FALSE(list.getReadList().is_empty() || list.getWriteList().is_empty());
}

TEST(SelectList, removes_by_descriptor) {
    SelectList list;
    for (SOCKET s : {101, 102, 101, 103}) {
        list.addReadSocket(adopted(s));
        list.addWriteSocket(adopted(s));
    }
    list.removeReadSocket(adopted(101));
    list.removeSocket(adopted(103));
    EXPECT_EQ((Descriptors{102}), descriptors(list.getReadList()));
    EXPECT_EQ((Descriptors{101, 102, 101}), descriptors(list.getWriteList()));
    list.clear();
    EXPECT_TRUE(list.getWriteList().is_empty());
}

int passes_left;

TEST(SelectList, a_wait_function_waits_in_passes_of_300_ms) {
    const struct {
        uint32 timeout_ms;
        int refuse_after;  // pass at which the function says no
        int polls;
    } cases[] = {{0, 99, 1}, {300, 99, 1}, {301, 99, 2}, {900, 99, 3}, {901, 99, 4}, {900, 2, 2}};
    SelectList list;
    list.setWaitFunction([](uint32 ms) { return ms == 300 && --passes_left > 0; });
    for (const auto& c : cases) {
        SCOPED_TRACE(c.timeout_ms);
        passes_left = c.refuse_after;
        Script script("poll=0*" + std::to_string(c.polls));
        EXPECT_EQ(0, list.select_us(c.timeout_ms * 1000));
        EXPECT_EQ(c.polls, c.refuse_after - passes_left);
    }
    list.addReadSocket(adopted(101));
    passes_left = 99;
    Script script("poll=0 poll:R");
    EXPECT_EQ(1, list.select(5000));
    EXPECT_EQ((Descriptors{101}), descriptors(list.getReadList()));
}

}  // namespace
