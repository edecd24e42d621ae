#include "netlib/netsocket.h"

#include <cerrno>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>

#include "netlib/ipaddress.h"
#include "netlib/selectlist.h"
#include "tests/netlib/scripted_calls.h"

namespace {

const IPAddress loopback(uint32{INADDR_LOOPBACK});

// Closes what it holds.
template <class Kind>
struct Owned : Kind {
    using Kind::Kind;
    ~Owned() override { Kind::close(); }
};

// Where a virtual member function stands in the table, by the Itanium C++ ABI.
template <class Member>
size_t slot(Member member) {
    size_t entry;
    std::memcpy(&entry, &member, sizeof entry);
    return (entry - 1) / sizeof(void*);
}

template <class... Members>
std::vector<size_t> slots(Members... members) {
    return {slot(members)...};
}

TEST(Socket, keeps_the_order_of_its_virtual_operations) {
    using S = Socket;
    int (S::*const recv_from)(char*, unsigned, IPAddress&) = &S::recv;
    int (S::*const recv)(char*, unsigned) = &S::recv;
    int (S::*const send_to)(const char*, unsigned, const IPAddress&) = &S::send;
    int (S::*const send)(const char*, unsigned) = &S::send;
    int (S::*const recv_raw)(char*, unsigned, sockaddr_storage*, socklen_t*) = &S::recv;
    int (S::*const send_raw)(const char*, unsigned, const sockaddr_storage*, socklen_t) = &S::send;
    std::vector<size_t> from_2_on(23);
    std::iota(from_2_on.begin(), from_2_on.end(), 2);
    EXPECT_EQ(from_2_on,
              slots(recv_from, recv, send_to, send, &S::send_with_yield, &S::shutdown, &S::close,
                    &S::bind, &S::connect, &S::getsockname, &S::getpeername, &S::setsockopt,
                    &S::getsockopt, &S::listen, &S::accept, &S::get_class, &S::allow_broadcast,
                    &S::add_membership, &S::set_blocking_state, &S::set_Nagle_algorithm,
                    &S::getLastError, recv_raw, send_raw));
}

TEST(Socket, type_and_family_follow_what_opened_it) {
    const struct {
        int domain, type, protocol;
        a_socket_type expected;
    } cases[] = {{AF_INET6, SOCK_STREAM, 6, SOCK_TCP},
                 {AF_INET, SOCK_DGRAM, 17, SOCK_UDP},
                 {AF_UNIX, SOCK_STREAM, 0, SOCK_UNKNOWN}};
    for (const auto& c : cases) {
        const Owned<Socket> socket(c.domain, c.type, c.protocol);
        EXPECT_EQ(c.expected, socket.getType());
        EXPECT_EQ(c.domain == AF_INET6, socket.isIPv6());
    }
    Socket never;
    EXPECT_FALSE(never.init(SOCK_UNKNOWN, false) || never.init(-1, SOCK_STREAM, 0));
    EXPECT_TRUE(never.is_closed() && never.getSocket() == -1);
}

TEST(Socket, copies_share_the_descriptor_and_one_close_closes_it) {
    Socket original(100000, SOCK_UDP, false), assigned;
    assigned = Socket(original);
    EXPECT_TRUE(assigned == original && assigned.is_udp() && !assigned.is_closed());
    Script script("close=0");
    for (int i = 0; i < 2; ++i) original.close();
    EXPECT_TRUE(original.is_closed() && original.getSocket() == -1);
}

TEST(Socket, every_descriptor_is_close_on_exec) {
    const auto marked = [](const Socket& s) { return fcntl(s.getSocket(), F_GETFD) == FD_CLOEXEC; };
    // Adopted descriptors are marked by the calls that put them to use.
    const auto unmark = [](const Socket& s) { fcntl(s.getSocket(), F_SETFD, 0); };
    Owned<Socket> listener(SOCK_TCP, false), client(SOCK_TCP, false), accepted;
    EXPECT_TRUE(marked(listener));
    unmark(listener);
    EXPECT_TRUE(listener.bind(loopback) == 0 && marked(listener));
    unmark(listener);
    EXPECT_TRUE(listener.listen(1) == 0 && marked(listener));
    unmark(client);
    EXPECT_TRUE(client.connect(IPAddress(listener)) == 0 && marked(client));
    IPAddress peer;
    EXPECT_TRUE(listener.accept(peer, accepted) == 0 && marked(accepted) && accepted.is_tcp());
    EXPECT_TRUE(peer.sameIPAddress(loopback));
    EXPECT_EQ(IPAddress(client).getPortNumber(), peer.getPortNumber());
}

TEST(Socket, a_send_to_a_peer_that_has_gone_raises_no_signal) {
    SOCKET ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    Owned<Socket> socket(ends[0], SOCK_TCP, false);
    Socket(ends[1], SOCK_TCP, false).close();
    EXPECT_EQ(-1, socket.send("x", 1));  // SIGPIPE would end this program
    EXPECT_EQ(uint32{EPIPE}, socket.getLastError().code());
    sockaddr_storage nobody = {};
    EXPECT_EQ(-1, unix_sendto(ends[0], "x", 1, 0, reinterpret_cast<sockaddr*>(&nobody), 0));
}

TEST(Socket, sets_the_Nagle_algorithm_the_wrong_way_round) {
    const Owned<Socket> socket(SOCK_TCP, false);
    for (const bool on : {true, false}) {
        int no_delay = -1;
        socklen_t length = sizeof no_delay;
        Socket(socket).set_Nagle_algorithm(on);
        getsockopt(socket.getSocket(), IPPROTO_TCP, TCP_NODELAY, &no_delay, &length);
        EXPECT_EQ(on, no_delay != 0);
    }
}

TEST(Connect, drops_the_scope_id_on_the_kernels_that_refuse_it) {
    for (const auto& [kernel, scope_id] :
         {std::pair{"2.6.12.3", 0U}, {"2.6.13", 7U}, {"2.4.20", 7U}, {"6.1.0", 7U}}) {
        Script script("connect=0");
        script.kernel = kernel;
        EXPECT_EQ(0, Socket(100000, SOCK_TCP, false).connect(IPAddress(in6addr_loopback, 7)));
        EXPECT_EQ(scope_id, script.connected_to.sin6_scope_id) << kernel;
        EXPECT_EQ(0, std::memcmp(&in6addr_loopback, &script.connected_to.sin6_addr, 16));
    }
}

Socket adopted(SOCKET s) {
    return Socket(s, SOCK_TCP, false);
}

TEST(SelectList, leaves_exactly_the_ready_sockets_and_sets_the_failed_aside) {
    SelectList list;
    for (SOCKET s : {101, 102, 103}) list.addReadSocket(adopted(s));
    for (SOCKET s : {101, 104}) list.addWriteSocket(adopted(s));
    Script script("poll:R,-,RE,-,W");
    EXPECT_EQ(3, list.select_us(1999999));
    EXPECT_EQ((std::vector<int>{1999}), script.poll_timeouts);
    const auto only = [](Socket_list& ready, SOCKET s) {
        Socket_iter iter(ready);
        const bool first = iter.get()->getSocket() == s;
        iter.next();
        return first && iter.is_past();
    };
    EXPECT_TRUE(only(list.getReadList(), 101) && only(list.getWriteList(), 104));
    EXPECT_TRUE(only(list.getErrorList(), 103));
}

}  // namespace
