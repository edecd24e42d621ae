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
#include "netlib/netutil.h"
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
    struct {
        size_t entry, adjustment;
    } parts;
    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
    return (parts.entry - 1) / sizeof(void*);
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
    } cases[] = {{AF_INET, SOCK_STREAM, 6, SOCK_TCP},
                 {AF_INET, SOCK_DGRAM, 17, SOCK_UDP},
                 {AF_INET, SOCK_STREAM, 0, SOCK_UNKNOWN},
                 {AF_UNIX, SOCK_STREAM, 0, SOCK_UNKNOWN},
                 {AF_INET6, SOCK_STREAM, 6, SOCK_TCP}};
    for (const auto& c : cases) {
        Owned<Socket> socket(c.domain, c.type, c.protocol);
        EXPECT_EQ(c.expected, socket.getType());
        EXPECT_EQ(c.domain == AF_INET6, socket.isIPv6());
    }
    EXPECT_EQ(SOCK_UNKNOWN, Owned<Socket>(SOCK_UD, false).getType());
    EXPECT_FALSE(Socket(100000, SOCK_TCP, true).isIPv6());
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
    const IPAddress loopback6(in6addr_loopback);
    Owned<Socket> socket(SOCK_UDP, true);
    if (socket.bind(loopback6) != 0) GTEST_SKIP() << "no IPv6 loopback address here";
    IPAddress local(uint32{1});  // an IPv4 address, 16 bytes long
    EXPECT_TRUE(socket.getsockname(local) == 0 && local.isIPv6() && local.sameIPAddress(loopback6));
    socket.close();
    EXPECT_FALSE(IPAddress(socket).isValid());
    TcpUtil::Fini();
}

// A socket that notes which options it is asked to set, with the bytes of their values.
struct OptionRecorder : Socket {
    using Socket::Socket;
    int setsockopt(int level, int option, const char* value, socklen_t length) override {
        asked += std::to_string(level) + "," + std::to_string(option) + "=";
        asked.append(value, length);
        return 0;
    }
    std::string asked;
};

TEST(Socket, membership_is_asked_for_in_the_groups_family) {
    static_assert(IP_ADD_MEMBERSHIP == 35 && IPV6_MULTICAST_LOOP == 19 && IPV6_JOIN_GROUP == 20);
    using namespace std::string_literals;
    Owned<OptionRecorder> socket(AF_INET6, SOCK_DGRAM, 17);
    IPAddress group4(uint32{0xE0000009}), iface4(uint32{0x0A010203});
    IPAddress group6(in6addr_loopback), iface6(in6addr_loopback, 0x01010101);
    EXPECT_EQ(0, socket.add_membership(group4, iface4));
    EXPECT_EQ(0, socket.add_membership(group6, iface6));
    EXPECT_EQ("0,35=\xE0\0\0\x09\x0A\x01\x02\x03"
              "41,19=\0\0\0\0"
              "41,20="s +
                  std::string(15, '\0') + "\1\1\1\1\1",
              socket.asked);
}

TEST(UdpSocket, exchanges_datagrams_and_starts_afresh) {
    Owned<UdpSocket> server(false), client(false);
    char buffer[8];
    IPAddress from;
    ASSERT_EQ(0, server.bind(loopback));
    ASSERT_EQ(4, client.send("ping", 4, IPAddress(server)));
    ASSERT_EQ(4, server.recv(buffer, sizeof buffer, from));
    EXPECT_EQ(IPAddress(client).getPortNumber(), from.getPortNumber());
    EXPECT_STREQ("A", server.get_class());
    server.set_blocking_state(false);
    ASSERT_TRUE(server.reinit());
    EXPECT_EQ(0, IPAddress(server).getPortNumber());
    EXPECT_EQ(-1, server.Socket::recv(buffer, sizeof buffer));
    EXPECT_EQ(uint32{EAGAIN}, server.getLastError().code());
}

TEST(Connect, drops_the_scope_id_on_the_kernels_that_refuse_it) {
    const std::pair<const char*, uint32> kernels[] = {
        {"2.6.0", 0},  {"2.6.9-5.EL", 0}, {"2.6.12.3", 0},      {"2.6.13", 7},
        {"2.4.20", 7}, {"2.6", 7},        {"6.1.0-13-amd64", 7}};
    for (const auto& [kernel, scope_id] : kernels) {
        Script script("connect=0");
        script.kernel = kernel;
        EXPECT_EQ(0, Socket(100000, SOCK_TCP, false).connect(IPAddress(in6addr_loopback, 7)));
        EXPECT_EQ(scope_id, script.connected_to.sin6_scope_id) << kernel;
        EXPECT_EQ(0, std::memcmp(&in6addr_loopback, &script.connected_to.sin6_addr, 16));
    }
}

}  // namespace
