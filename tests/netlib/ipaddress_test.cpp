#include "netlib/ipaddress.h"

#include <sys/un.h>

#include <memory>
#include <set>

#include "netlib/netsocket.h"
#include "tests/netlib/netlib_fixture.h"

namespace {

class Address : public NetlibTest {};
class AddressWithoutIPv6 : public NetlibWithoutIPv6 {};

IPAddress Literal(const char* text, uint32 scope = 0, uint16 port = 0) {
    IPAddress ip(text);
    EXPECT_TRUE(ip.isValid()) << text;
    ip.setScopeId(scope);
    ip.setPortNumber(port);
    return ip;
}

TEST_F(Address, is_classified_by_its_leading_bits) {
    const std::set<std::string> loopback = {"127.0.0.1", "::1"};
    const std::set<std::string> private_net = {"10.0.0.0",      "172.16.0.1", "172.31.255.255",
                                               "192.168.255.1", "::10.1.2.3", "::ffff:10.1.2.3",
                                               "fc00::",        "fd00::1"};
    const struct {
        e_IPv6AddressType type;
        const char* texts;
    } groups[] = {{addrUnknown, "127.0.0.1 127.0.0.2 9.255.255.255 10.0.0.0 172.15.0.1 172.16.0.1 "
                                "172.31.255.255 172.32.0.1 192.167.1.1 192.168.255.1 192.169.1.1"},
                  {addrReserved, ":: ::fffe:1.2.3.4 ::1:0:0:1 0:0:0:0:1:: 200:: 5ff::"},
                  {addrIPv4Compatible, "::1 ::2 ::10.1.2.3 ::192.0.2.7"},
                  {addrIPv4Mapped, "::ffff:10.1.2.3 ::ffff:127.0.0.1"},
                  {addrUnassigned,
                   "100:: 600:: fff:: 1000:: 4000:: dfff:: efff:: f7ff:: fbff:: fc00:: fd00::1 "
                   "fe00::1 fe7f::"},
                  {addrGlobalUnicast, "2000:: 2001:db8::1 3fff::"},
                  {addrLinkLocalUnicast, "fe80::1 febf::"},
                  {addrSiteLocalUnicast, "fec0::1 feff::"},
                  {addrMulticast, "ff02::1"}};
    for (const auto& group : groups) {
        for (const std::string& text : Words(group.texts)) {
            const IPAddress ip = Literal(text.c_str());
            EXPECT_EQ(group.type, ip.getIPv6AddressType()) << text;
            EXPECT_EQ(loopback.count(text) == 1, ip.isLoopback()) << text;
            EXPECT_EQ(private_net.count(text) == 1, ip.isPrivateNet()) << text;
        }
    }
}

TEST_F(Address, that_is_not_valid_has_no_class_but_keeps_its_bytes) {
    IPAddress v6 = Literal("fd00::1", 7, 25);
    v6.setValid(false);
    EXPECT_EQ(addrUnknown, v6.getIPv6AddressType());
    EXPECT_TRUE(v6.isPrivateNet());
    EXPECT_EQ(0U, v6.getScopeId());
    EXPECT_EQ(0, v6.getPortNumber());
    EXPECT_FALSE(v6.sameIPAddress(v6));
    IPAddress loopback = Literal("::1");
    loopback.setValid(false);
    EXPECT_TRUE(loopback.isLoopback());

    IPAddress v4 = Literal("10.0.0.1", 0, 25);
    v4.setValid(false);
    EXPECT_FALSE(v4.isPrivateNet());
    EXPECT_EQ(-1, int(v4));
    EXPECT_TRUE(v4 == 0xFFFFFFFFU);
    v4.setValid(true);
    EXPECT_EQ(25, v4.getPortNumber());
    EXPECT_FALSE(v4.isIPv6());
}

TEST_F(Address, equals_another_by_host_alone_and_a_number_as_IPv4) {
    EXPECT_TRUE(Literal("127.0.0.1") == 0x7F000001U && Literal("127.0.0.1") != 0x7F000002U);
    EXPECT_TRUE(Literal("::1") != 0xFFFFFFFFU && !(Literal("::1") == 0xFFFFFFFFU));
    EXPECT_EQ(-1, int(Literal("::1")));
    EXPECT_EQ(-1, int(Literal("255.255.255.255")));
    const struct {
        IPAddress a;
        IPAddress b;
        bool same;
    } rows[] = {{Literal("192.0.2.7", 0, 25), Literal("192.0.2.7", 0, 587), true},
                {Literal("192.0.2.7"), Literal("192.0.2.8"), false},
                {Literal("192.0.2.7"), Literal("::ffff:192.0.2.7"), true},
                {Literal("::192.0.2.7", 0, 1), Literal("192.0.2.7"), true},
                {Literal("::ffff:192.0.2.7"), Literal("::192.0.2.7"), false},
                {Literal("2001:db8::1"), Literal("192.0.2.7"), false},
                {Literal("0.0.0.0"), Literal("::"), false},
                {Literal("fe80::1", 2, 1), Literal("fe80::1", 0, 2), true},
                {Literal("fe80::1", 2), Literal("fe80::1", 2), true},
                {Literal("fe80::1", 2), Literal("fe80::1", 3), false},
                {IPAddress(), IPAddress(), false}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.same, row.a.sameIPAddress(row.b)) << Text(row.a) << " " << Text(row.b);
        EXPECT_EQ(row.same, row.b.sameIPAddress(row.a)) << Text(row.b) << " " << Text(row.a);
    }
    IPAddress flow = Literal("2001:db8::1");
    flow.get_sockaddr_in6()->sin6_flowinfo = 7;
    EXPECT_TRUE(flow.sameIPAddress(Literal("2001:db8::1")));
    *flow.get_sockaddr_len_ptr() = 0;
    EXPECT_TRUE(flow.sameIPAddress(Literal("2001:db8::2")));
}

TEST_F(Address, tells_the_unspecified_addresses_apart) {
    IPAddress ip;
    ip.use_INADDR_ANY(false);
    EXPECT_TRUE(ip.is_INADDR_ANY_v4() && !ip.is_INADDR_ANY_v6() && ip.is_INADDR_ANY());
    ip.use_INADDR_ANY(true);
    EXPECT_TRUE(ip.is_INADDR_ANY_v6() && !ip.is_INADDR_ANY_v4() && ip.is_INADDR_ANY());
    EXPECT_TRUE(Literal("::ffff:0.0.0.0").is_INADDR_ANY_v4());
    EXPECT_FALSE(Literal("::1").is_INADDR_ANY());
}

TEST_F(Address, gives_out_the_IPv4_address_inside) {
    EXPECT_EQ("10.1.2.3:0", Text(Literal("::ffff:10.1.2.3", 3, 25).getIPv4EmbeddedAddress()));
    EXPECT_EQ("0.0.0.1:0", Text(Literal("::1").getIPv4EmbeddedAddress()));
    for (const char* without : {"192.0.2.7", "2001:db8::1", "::"}) {
        IPAddress inside = Literal(without).getIPv4EmbeddedAddress();
        EXPECT_FALSE(inside.isValid()) << without;
        inside.setValid(true);
        EXPECT_EQ("0.0.0.0:0", Text(inside)) << without;
    }
}

TEST_F(Address, takes_over_socket_addresses_of_the_internet_families_only) {
    sockaddr_storage storage = {};
    storage.ss_family = AF_INET6;
    IPAddress ip(&storage, sizeof(sockaddr_in6));
    EXPECT_TRUE(ip.isValid() && ip.isIPv6());
    EXPECT_EQ(sizeof(sockaddr_in6), ip.get_sockaddr_len());
    storage.ss_family = AF_UNIX;
    ip.reset(&storage, sizeof(sockaddr_un));
    EXPECT_FALSE(ip.isValid() || ip.isIPv6());
    // A length beyond the storage, and the address's own bytes as the source.
    ip = Literal("192.0.2.7", 0, 25);
    ip.reset(ip.get_sockaddr(), 4096);
    EXPECT_EQ(sizeof(sockaddr_storage), ip.get_sockaddr_len());
    EXPECT_EQ("192.0.2.7:25", Text(ip));
    ip.reset(nullptr, 0);
    EXPECT_FALSE(ip.isValid());
}

TEST_F(Address, keeps_its_list_when_its_value_changes) {
    IPAddress_list list;
    IPAddress ip = Literal("2001:db8::1", 5, 25);
    list.append(&ip);
    const std::unique_ptr<IPAddress> copy(ip.clone());
    EXPECT_FALSE(copy->is_linked());
    EXPECT_EQ("(2001:db8::1%5):25", Text(*copy));
    ip = 0x7F000001U;
    EXPECT_EQ(&ip, list.get_first());
    EXPECT_EQ("127.0.0.1:0", Text(ip));
    ip.setScopeId(9);
    EXPECT_EQ(0U, ip.getScopeId());
}

TEST_F(Address, becomes_invalid_but_keeps_its_bytes_when_text_does_not_resolve) {
    IPAddress ip = Literal("192.0.2.7", 0, 25);
    EXPECT_FALSE(ip.reset("no.such.host"));
    EXPECT_FALSE(ip.isValid());
    ip.setValid(true);
    EXPECT_EQ("192.0.2.7:25", Text(ip));
    EXPECT_FALSE(ip.reset(nullptr));
    const IPAddress fresh("no.such.host");
    EXPECT_FALSE(fresh.isValid());
    EXPECT_EQ(sizeof(sockaddr_in), fresh.get_sockaddr_len());
    EXPECT_EQ(sizeof(sockaddr_storage), IPAddress().get_sockaddr_len());
}

TEST_F(AddressWithoutIPv6, has_no_IPv6_text_but_classifies_IPv6_bytes) {
    IPAddress ip;
    ip.use_INADDR_ANY(true);
    EXPECT_FALSE(ip.isValid());
    EXPECT_EQ(addrReserved, IPAddress(in6addr_any).getIPv6AddressType());
    EXPECT_TRUE(IPAddress(in6addr_any).is_INADDR_ANY());
    EXPECT_TRUE(IPAddress(in6addr_loopback).isLoopback());
}

TEST_F(Address, of_a_socket_is_its_local_address) {
    Socket socket(SOCK_TCP, false);
    ASSERT_EQ(0, socket.bind(Literal("127.0.0.1")));
    const IPAddress local(socket);
    EXPECT_TRUE(local == 0x7F000001U);
    EXPECT_NE(0, local.getPortNumber());
    EXPECT_EQ(sizeof(sockaddr_in), local.get_sockaddr_len());
    socket.close();
    EXPECT_FALSE(IPAddress(socket).isValid());

    Socket v6(AF_INET6, SOCK_STREAM, IPPROTO_TCP);
    if (v6.bind(Literal("::1")) != 0) GTEST_SKIP() << "no IPv6 loopback here";
    const IPAddress local6(v6);
    EXPECT_TRUE(local6.sameIPAddress(Literal("::1")));
    EXPECT_EQ(sizeof(sockaddr_storage), local6.get_sockaddr_len());
    v6.close();
}

// Every text in buffers of every size: it fits exactly when there is room for its terminator, and
// nothing is written beyond the buffer.
TEST_F(Address, is_written_as_text_that_fits_or_is_refused) {
    fake_system.names["192.0.2.7"] = "mail.test";
    const struct {
        IPAddress ip;
        bool port, name, scope;
        std::string text;
    } rows[] = {{Literal("192.0.2.7", 0, 25), false, false, true, "192.0.2.7"},
                {Literal("192.0.2.7", 0, 25), true, false, false, "192.0.2.7:25"},
                {Literal("192.0.2.7", 0, 65535), true, true, false, "mail.test:65535"},
                {Literal("192.0.2.7", 0, 25), false, true, false, "mail.test"},
                {Literal("fe80::1", 2, 25), true, false, true, "(fe80::1%2):25"},
                {Literal("fe80::1", 2, 25), true, true, false, "(fe80::1):25"},
                {Literal("fe80::1", 2, 25), false, false, true, "fe80::1%2"},
                {Literal("fe80::1", 999, 25), true, false, true, "(fe80::1%999):25"},
                {Literal("fe80::1", 1000, 25), true, false, true, "(fe80::1):25"},
                {Literal("::ffff:192.0.2.7"), false, false, true, "::ffff:192.0.2.7"},
                {Literal("1:2:3:4:5:6:7:8", 0, 1), true, false, true, "(1:2:3:4:5:6:7:8):1"}};
    for (const auto& row : rows) {
        for (size_t size = 0; size <= row.text.size() + 2; ++size) {
            std::string buf(size + 8, '#');
            const bool fits = row.ip.toString(buf.data(), size, row.port, row.name, row.scope);
            EXPECT_EQ(size > row.text.size(), fits) << row.text << " in " << size;
            if (fits) {
                EXPECT_STREQ(row.text.c_str(), buf.c_str());
            }
            EXPECT_EQ("########", buf.substr(size)) << row.text << " in " << size;
        }
    }
    char buf[8];
    EXPECT_FALSE(IPAddress().toString(buf, sizeof buf, false, false, false));
    EXPECT_FALSE(Literal("1.2.3.4").toString(nullptr, 8, false, false, false));
}

}  // namespace
