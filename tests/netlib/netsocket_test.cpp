#include "netlib/netsocket.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include "netlib/ipaddress.h"
#include "netlib/netutil.h"
#include "netlib/udpsocket.h"
#include "tests/netlib/scripted_calls.h"

namespace {

const IPAddress loopback(uint32{INADDR_LOOPBACK});

bool close_on_exec(const Socket& socket) {
    return fcntl(socket.getSocket(), F_GETFD) == FD_CLOEXEC;
}

// Closes what it holds.
template <class Kind>
struct Owned : Kind {
    using Kind::Kind;
    ~Owned() override { Kind::close(); }
};

// Where a virtual member function stands in the table, by the Itanium C++ ABI.
template <class Member>
size_t slot(Member member) {
    struct {
        size_t entry, adjustment;
    } parts;
    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
    return (parts.entry - 1) / sizeof(void*);
}

TEST(Socket, keeps_the_order_of_its_virtual_operations) {
    using S = Socket;
    const size_t from_2_on[] = {
        slot<int (S::*)(char*, unsigned, IPAddress&)>(&S::recv),
        slot<int (S::*)(char*, unsigned)>(&S::recv),
        slot<int (S::*)(const char*, unsigned, const IPAddress&)>(&S::send),
        slot<int (S::*)(const char*, unsigned)>(&S::send),
        slot(&S::send_with_yield),
        slot(&S::shutdown),
        slot(&S::close),
        slot(&S::bind),
        slot(&S::connect),
        slot(&S::getsockname),
        slot(&S::getpeername),
        slot(&S::setsockopt),
        slot(&S::getsockopt),
        slot(&S::listen),
        slot(&S::accept),
        slot(&S::get_class),
        slot(&S::allow_broadcast),
        slot(&S::add_membership),
        slot(&S::set_blocking_state),
        slot(&S::set_Nagle_algorithm),
        slot(&S::getLastError),
        slot<int (S::*)(char*, unsigned, sockaddr_storage*, socklen_t*)>(&S::recv),
        slot<int (S::*)(const char*, unsigned, const sockaddr_storage*, socklen_t)>(&S::send)};
    for (size_t i = 0; i < std::size(from_2_on); ++i) EXPECT_EQ(i + 2, from_2_on[i]);
}

TEST(Socket, type_and_family_follow_what_opened_it) {
    const struct {
        int domain, type, protocol;
        a_socket_type expected;
    } cases[] = {{AF_INET, SOCK_STREAM, 6, SOCK_TCP},
                 {AF_INET, SOCK_DGRAM, 17, SOCK_UDP},
                 {AF_INET, SOCK_STREAM, 0, SOCK_UNKNOWN},
                 {AF_UNIX, SOCK_STREAM, 0, SOCK_UNKNOWN},
                 {AF_INET6, SOCK_STREAM, 6, SOCK_TCP}};
    for (const auto& c : cases) {
        Owned<Socket> socket(c.domain, c.type, c.protocol);
        EXPECT_EQ(c.expected, socket.getType());
        EXPECT_EQ(c.domain == AF_INET6, socket.isIPv6());
        EXPECT_FALSE(socket.is_closed());
    }
    Owned<Socket> local(SOCK_UD, false);
    EXPECT_EQ(SOCK_UNKNOWN, local.getType());
    Socket never;
    EXPECT_FALSE(never.init(SOCK_UNKNOWN, false));
    EXPECT_FALSE(never.init(-1, SOCK_STREAM, 0));
    EXPECT_TRUE(never.is_closed());
    EXPECT_EQ(-1, never.getSocket());
    EXPECT_FALSE(Socket(100000, SOCK_TCP, true).isIPv6());
}

TEST(Socket, copies_share_the_descriptor_and_one_close_closes_it) {
    Socket original(100000, SOCK_UDP, false);
    Socket copy(original);
    Socket assigned;
    assigned = copy;
    EXPECT_TRUE(assigned == original && assigned.is_udp() && !assigned.is_closed());
    Script script("close=0");
    original.close();
    original.close();
    EXPECT_TRUE(original.is_closed());
}

TEST(Socket, without_a_descriptor_nothing_reaches_the_system_or_waits) {
    Socket closed(SOCK_UDP, false);
    EXPECT_EQ(-1, closed.bind(IPAddress())) << "an invalid address";
    EXPECT_EQ(static_cast<uint32>(EINVAL), closed.getLastError().code());
    closed.close();
    char byte = 0;
    IPAddress from;
    EXPECT_EQ(-1, closed.recv(&byte, 1, from));
    EXPECT_EQ(static_cast<uint32>(EBADF), closed.getLastError().code());
    EXPECT_EQ(-1, closed.send(&byte, 1));
    EXPECT_EQ(static_cast<uint32>(EBADF), closed.getLastError().code());
}

TEST(Socket, every_descriptor_is_close_on_exec) {
    Owned<Socket> listener(SOCK_TCP, false);
    Owned<Socket> client(SOCK_TCP, false);
    EXPECT_TRUE(close_on_exec(listener));
    // Adopted descriptors are marked by the calls that put them to use.
    fcntl(listener.getSocket(), F_SETFD, 0);
    ASSERT_EQ(0, listener.bind(loopback));
    EXPECT_TRUE(close_on_exec(listener));
    fcntl(listener.getSocket(), F_SETFD, 0);
    ASSERT_EQ(0, listener.listen(1));
    EXPECT_TRUE(close_on_exec(listener));
    IPAddress address(listener);
    fcntl(client.getSocket(), F_SETFD, 0);
    ASSERT_EQ(0, client.connect(address));
    EXPECT_TRUE(close_on_exec(client));

    IPAddress peer;
    Owned<Socket> accepted;
    ASSERT_EQ(0, listener.accept(peer, accepted));
    EXPECT_TRUE(close_on_exec(accepted));
    EXPECT_TRUE(accepted.is_tcp());
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

TEST(Socket, options_are_set_as_the_names_do_not_say) {
    Owned<Socket> socket(SOCK_TCP, false);
    for (const bool flag : {true, false}) {
        int no_delay = -1;
        socklen_t length = sizeof no_delay;
        ASSERT_EQ(0, socket.set_Nagle_algorithm(flag));
        socket.getsockopt(IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&no_delay), &length);
        EXPECT_EQ(flag, no_delay != 0);
    }
    ASSERT_EQ(0, socket.set_blocking_state(false));
    EXPECT_FALSE(socket.get_blocking_state());
    EXPECT_NE(0, fcntl(socket.getSocket(), F_GETFL) & O_NONBLOCK);
}

TEST(Socket, an_address_is_stored_whole_whatever_the_target_held) {
    ASSERT_TRUE(TcpUtil::Init());
    IPAddress any6(in6addr_loopback);
    Owned<Socket> socket(SOCK_UDP, true);
    if (socket.bind(any6) != 0) GTEST_SKIP() << "no IPv6 loopback address here";
    IPAddress local(uint32{1});  // an IPv4 address, 16 bytes long
    ASSERT_EQ(0, socket.getsockname(local));
    EXPECT_TRUE(local.isIPv6());
    EXPECT_TRUE(local.sameIPAddress(any6));
    TcpUtil::Fini();
}

// A socket that notes which options it is asked to set, with the bytes of their values.
struct OptionRecorder : Socket {
    using Socket::Socket;
    int setsockopt(int level, int option, const char* value, socklen_t length) override {
        asked.emplace_back(level, option, std::string(value, length));
        return 0;
    }
    std::vector<std::tuple<int, int, std::string>> asked;
};

TEST(Socket, membership_is_asked_for_in_the_groups_family) {
    using namespace std::string_literals;
    Owned<OptionRecorder> socket(AF_INET6, SOCK_DGRAM, 17);
    IPAddress group4(uint32{0xE0000009}), iface4(uint32{0x0A010203});
    IPAddress group6(in6addr_loopback), iface6(in6addr_loopback, 0x01010101);
    EXPECT_EQ(0, socket.add_membership(group4, iface4));
    EXPECT_EQ(0, socket.add_membership(group6, iface6));
    const decltype(socket.asked) expected = {
        {IPPROTO_IP, IP_ADD_MEMBERSHIP, "\xE0\0\0\x09\x0A\x01\x02\x03"s},
        {IPPROTO_IPV6, IPV6_MULTICAST_LOOP, "\0\0\0\0"s},
        {IPPROTO_IPV6, IPV6_JOIN_GROUP, std::string(15, '\0') + "\1\1\1\1\1"}};
    EXPECT_EQ(expected, socket.asked);
}

TEST(UdpSocket, exchanges_datagrams_and_starts_afresh) {
    Owned<UdpSocket> server(false), client(false);
    ASSERT_EQ(0, server.bind(loopback));
    ASSERT_EQ(4, client.send("ping", 4, IPAddress(server)));
    char buffer[8];
    IPAddress from;
    ASSERT_EQ(4, server.recv(buffer, sizeof buffer, from));
    EXPECT_EQ(IPAddress(client).getPortNumber(), from.getPortNumber());
    EXPECT_STREQ("A", server.get_class());
    EXPECT_EQ(-1, server.get_max_msg_size());

    server.set_blocking_state(false);
    ASSERT_TRUE(server.reinit());
    EXPECT_EQ(0, IPAddress(server).getPortNumber());
    EXPECT_EQ(-1, server.Socket::recv(buffer, sizeof buffer));
    EXPECT_EQ(uint32{EAGAIN}, server.getLastError().code());
}

TEST(Connect, drops_the_scope_id_on_the_kernels_that_refuse_it) {
    const struct {
        const char* kernel;
        uint32 scope_id;
    } cases[] = {{"2.6.0", 0},  {"2.6.9-5.EL", 0}, {"2.6.12.3", 0},      {"2.6.13", 7},
                 {"2.4.20", 7}, {"2.6", 7},        {"6.1.0-13-amd64", 7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kernel);
        Script script("connect=0");
        script.kernel = c.kernel;
        IPAddress address(in6addr_loopback, 7);
        EXPECT_EQ(0, Socket(100000, SOCK_TCP, false).connect(address));
        EXPECT_EQ(c.scope_id, script.connected_to.sin6_scope_id);
        EXPECT_EQ(0, std::memcmp(&in6addr_loopback, &script.connected_to.sin6_addr, 16));
    }
}

}  // namespace
