#include "netlib/netutil.h"

#include <net/if.h>

#include <fstream>
#include <thread>

#include "tests/netlib/netlib_fixture.h"
#include "utils/etc/utmemstream.h"

namespace {

class Resolver : public NetlibTest {
  protected:
    using NetlibTest::NetlibTest;
    /// All addresses that a text resolves to, joined by blanks; "-" for a failure.
    static std::string All(const char* text, TcpUtil::eAddressType type = TcpUtil::ADDR_BOTH) {
        IPAddress_list list;
        if (!TcpUtil::ResolveAll(text, list, type)) return list.is_empty() ? "-" : "leftovers";
        std::string result;
        for (IPAddress_iter iter(list); !iter.is_past(); iter.next()) {
            result.append(result.empty() ? "" : " ").append(Text(*iter.get()));
        }
        list.delete_all();
        return result;
    }
    static std::string First(const char* text, TcpUtil::eAddressType type = TcpUtil::ADDR_BOTH) {
        IPAddress ip(0x01020304U);
        if (!TcpUtil::Resolve(text, ip, type)) {
            return ip == 0x01020304U ? "-" : "changed on failure";
        }
        return Text(ip);
    }
};
class ResolverWithoutIPv6 : public Resolver {
  protected:
    ResolverWithoutIPv6() : Resolver(false) {}
};

std::string Acceptance(const char* text) {
    std::string accepted;
    if (TcpUtil::IsIPv4Address(text, false)) accepted += "4";
    if (TcpUtil::IsIPv6Address(text, false)) accepted += "6";
    EXPECT_EQ(!accepted.empty(), TcpUtil::IsIPAddress(text, false));
    if (TcpUtil::IsIPAddress(text, true)) accepted += "p";
    return accepted;
}

TEST(Literals, are_judged_character_by_character) {
    const struct {
        const char* accepted_by;  // 4, 6: without port; p: with a port allowed
        const char* texts;
    } groups[] = {
        {"4p", "192.0.2.7 1..2.3 ... 1.2.3.255 1.2.3.0000000000255"},
        {"6p", "1:2:3:4:5:6:7:8 1:2:3:4:5:6:7: :1:2:3:4:5:6:7 1::3:4:5:6:7:8 :: AbCd::eF09 "
               "::ffff:1.2.3.4 ::ffff:192.168.100.200 1:2:3:4:5:6:1.2.3.4 "
               "1:2:3:4:5:6:7:1.2.3.4 "
               "::1.2.3.0000000000000000000000000000000000000000000000000004 fe80::1%eth0 "
               "fe80::1% [::1] (::1) [fe80::1%2]"},
        {"p", "1.2.3.4:80 1.2.3.4: 1.2.3.4:65535 (fe80::1%eth0):25 [::1]:25 [::1]: "
              "[::1]:65535"},
        {"", "1.2.3.256 256.2.3.4 1.2.3.99999999999999999999 1.2.3 1.2.3.4. 1.2.3.-4 1.2.3.a "
             "1.2.3.4:65536 1.2.3.4:80: 1.2.3.4:8.0 1.2:3.4.5 1:2:3:4:5:6:7 "
             "1:2:3:4:5:6:7:8:9 1:2:3:4:5:6:7:: : ::: 1::2::3 12345:: ::g 1:2:3:4:5:1.2.3.4 "
             "::1.2.3.256 ::1.2.3 ::1.2.3.4a ::a.2.3.4 ::.2.3.4 "
             "::1.2.3.00000000000000000000000000000000000000000000000000004 fe80::1%eth0.5 "
             "fe80::1%2%3 fe80::1%2:3 [::1) [::1 ::1] [[::1]] 1[::1] [:] [1:2:3] [::1]x "
             "[::1]:65536 [::1]:000025 [::1]25 localhost"}};
    for (const auto& group : groups) {
        for (const std::string& text : Words(group.texts)) {
            EXPECT_EQ(group.accepted_by, Acceptance(text.c_str())) << text;
        }
    }
    for (const char* text : {"", " 1.2.3.4", "[::1]:2 ", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ("", Acceptance(text));
    }
}

TEST(Literals, give_out_the_port_number) {
    const struct {
        uint16 port;
        std::vector<const char*> texts;
    } groups[] = {
        {0, {"host", "host:", "host: ", "host:x", "host:65536", "[::1]", "::1"}},
        {25,
         {"host:25", "host: \t25", "host:25x", "host:65561", "1.2.3.4:25", "[::1]:25", "(::1):25"}},
        {587, {"[fe80::1%eth0]:587"}},
        {65535, {"host:-1", "host:4294967321"}}};
    for (const auto& group : groups) {
        for (const char* text : group.texts) {
            EXPECT_EQ(group.port, TcpUtil::GetPortNumber(text)) << text;
        }
    }
    EXPECT_EQ(0, TcpUtil::GetPortNumber(nullptr));
}

TEST_F(Resolver, understands_every_form_of_literal) {
    const struct {
        const char* result;
        std::vector<const char*> texts;
    } groups[] = {{"192.0.2.7:0", {"192.0.2.7"}},
                  {"192.0.2.7:25", {"192.0.2.7:25", "192.0.2.7:0025"}},
                  {"-",
                   {"192.0.2.7:65536", "192.0.2.7:x", "192.0.2.7:", "1..2.3",
                    "(2001:db8::1):", "1:2:3:4:5:6:7:", "fe80::1%nosuchif", "", ":25", "host:65536",
                    "host:", "host: 25"}},
                  {"255.255.255.255:0", {"255.255.255.255"}},
                  {"255.255.255.255:9", {"255.255.255.255:9"}},
                  {"(2001:db8::1):0", {"2001:db8::1", "[2001:db8::1]"}},
                  {"(2001:db8::1):25", {"[2001:db8::1]:25", "(2001:db8::1):25"}},
                  {"(::ffff:192.0.2.7):0", {"::ffff:192.0.2.7"}},
                  {"203.0.113.1:65535", {"host:65535x"}}};
    fake_system.hosts["host"] = {"203.0.113.1"};
    for (const auto& group : groups) {
        for (const char* text : group.texts) EXPECT_EQ(group.result, First(text)) << text;
    }
    EXPECT_EQ("-", First(nullptr));
}

TEST_F(Resolver, takes_a_scope_by_name_or_number) {
    const uint32 index = if_nametoindex("lo");
    if (index == 0) GTEST_SKIP() << "no interface named lo";
    const std::string number = std::to_string(index);
    for (const std::string& text :
         {std::string("fe80::1%").append(number), std::string("[fe80::1%lo]")}) {
        IPAddress ip(text.c_str());
        EXPECT_TRUE(ip.isValid()) << text;
        EXPECT_EQ(index, ip.getScopeId()) << text;
    }
    // A name may carry one too; only the first address gets it, and only if it is IPv6.
    fake_system.hosts["host"] = {"fe80::1", "fe80::2"};
    EXPECT_EQ(std::string("(fe80::1%").append(number).append("):25 (fe80::2):25"),
              All("host%lo:25"));
    fake_system.hosts["host"] = {"203.0.113.1", "fe80::2"};
    EXPECT_EQ("203.0.113.1:0 (fe80::2):0", All("host%lo"));
    // One that names no interface stays in the text.
    fake_system.hosts["host%none"] = {"203.0.113.2"};
    EXPECT_EQ("203.0.113.2:0", All("host%none"));
    EXPECT_EQ("-", All("host%4294967297"));
}

TEST_F(Resolver, keeps_the_order_of_the_system_and_takes_the_type_asked_for) {
    fake_system.hosts["host"] = {"2001:db8::1", "203.0.113.1", "2001:db8::2", "203.0.113.2"};
    EXPECT_EQ("(2001:db8::1):0 203.0.113.1:0 (2001:db8::2):0 203.0.113.2:0", All("host"));
    EXPECT_EQ("203.0.113.1:25 203.0.113.2:25", All("host:25", TcpUtil::ADDR_IPv4));
    EXPECT_EQ("(2001:db8::1):0 (2001:db8::2):0", All("host", TcpUtil::ADDR_IPv6));
    EXPECT_EQ("(2001:db8::1):0", First("host"));
    EXPECT_EQ("203.0.113.1:0", First("host", TcpUtil::ADDR_IPv4));
    IPAddress ip;
    EXPECT_TRUE(TcpUtil::Resolve("host:1", 587, ip, TcpUtil::ADDR_IPv4));
    EXPECT_EQ("203.0.113.1:587", Text(ip));
    EXPECT_EQ("-", All("::1", TcpUtil::ADDR_IPv4));
    EXPECT_EQ("-", All("1.2.3.4", TcpUtil::ADDR_IPv6));
    EXPECT_EQ("255.255.255.255:0", All("255.255.255.255", TcpUtil::ADDR_IPv6));
}

TEST_F(Resolver, asks_again_for_IPv4_when_the_answer_had_none) {
    fake_system.hosts["host"] = {"2001:db8::1"};
    EXPECT_EQ("-", All("host", TcpUtil::ADDR_IPv4));
    EXPECT_EQ(2U, fake_system.lookups.size());
    EXPECT_EQ("-", All("unknown"));
    EXPECT_EQ(3U, fake_system.lookups.size());
}

TEST_F(Resolver, cuts_a_host_that_is_too_long_and_drops_its_port) {
    const std::string longest(254, 'a');
    EXPECT_EQ("-", All((longest + "b:x").c_str()));
    EXPECT_EQ("-", All((longest + ":x").c_str()));
    EXPECT_EQ(std::vector<std::string>({longest, longest}), fake_system.lookups);
    EXPECT_EQ("-", All((longest.substr(1) + ":x").c_str()));
    EXPECT_EQ(2U, fake_system.lookups.size());
}

TEST_F(ResolverWithoutIPv6, resolves_IPv4_alone) {
    fake_system.hosts["host"] = {"203.0.113.1", "203.0.113.2"};
    EXPECT_EQ("203.0.113.1:25 203.0.113.2:25", All("host:25"));
    EXPECT_EQ("203.0.113.1:0", First("host"));
    EXPECT_EQ("-", First("host", TcpUtil::ADDR_IPv6));
    EXPECT_EQ("-", First("unknown"));
    EXPECT_EQ("192.0.2.7:25", First("192.0.2.7:25"));
    EXPECT_EQ("255.255.255.255:0", First("1..2.3"));
    EXPECT_EQ("-", First("[2001:db8::1]:25"));
    EXPECT_EQ("127.0.0.1:0", Text(TcpUtil::GetLoopbackIPAddress(true)));
}

// Literals, for which the C library asks no name server.
TEST(SystemResolver, answers_in_the_room_given) {
    ASSERT_TRUE(TcpUtil::Init());
    IPAddress ip;
    EXPECT_TRUE(TcpUtil::Resolve("127.0.0.1:25", ip, TcpUtil::ADDR_IPv4));
    EXPECT_EQ("127.0.0.1:25", Text(ip));
    TcpUtil::Fini();
    HostAnswer one, other;
    const hostent* const first = NetInterface::_gethostbyname("192.0.2.7", one);
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, NetInterface::_gethostbyname("192.0.2.8", other));
    EXPECT_EQ(0, memcmp(first->h_addr_list[0], "\xC0\0\2\7", 4));
}

TEST_F(Resolver, looks_up_names) {
    fake_system.names["192.0.2.7"] = "mail.test";
    char name[10];
    EXPECT_TRUE(TcpUtil::LookupHostName(IPAddress("192.0.2.7"), name, sizeof name));
    EXPECT_STREQ("mail.test", name);
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress("192.0.2.7"), name, sizeof name - 1));
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress("192.0.2.8"), name, sizeof name));
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress("::ffff:192.0.2.7"), name, sizeof name));
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress(), name, sizeof name));

    fake_system.hosts["thishost"] = {"203.0.113.1"};
    char** names = nullptr;
    ASSERT_TRUE(TcpUtil::LookupHostNames(&names));
    EXPECT_STREQ("thishost", names[0]);
    EXPECT_STREQ("thishost.test", names[1]);
    EXPECT_STREQ("alias", names[2]);
    EXPECT_EQ(nullptr, names[3]);
    TcpUtil::FreeHostNames(names);
    TcpUtil::FreeHostNames(nullptr);
}

TEST(TcpUtilLifetime, loads_once_and_unloads_after_the_last_fini) {
    fake_system = {};
    NetInterface::_use_calls(&fake::calls);
    const size_t mutexes = ut_safe_pthread_mutex_state().num_in_use;
    TcpUtil::Fini();
    EXPECT_FALSE(TcpUtil::IsIPv6Supported());
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(TcpUtil::Init() && TcpUtil::Init());
        EXPECT_EQ(mutexes + 3, ut_safe_pthread_mutex_state().num_in_use);
        EXPECT_TRUE(TcpUtil::IsIPv6Supported());
        TcpUtil::Fini();
        EXPECT_TRUE(TcpUtil::IsIPv6Supported());
        TcpUtil::Fini();
        TcpUtil::Fini();
        EXPECT_FALSE(TcpUtil::IsIPv6Supported());
        EXPECT_EQ(mutexes, ut_safe_pthread_mutex_state().num_in_use);
    }
    EXPECT_EQ(2, fake_system.probes);
    // What needs a lock fails while there is none.
    fake_system.hosts["host"] = {"203.0.113.1"};
    EXPECT_FALSE(IPAddress("host").isValid());
    EXPECT_TRUE(IPAddress("192.0.2.7").isValid());
    EXPECT_EQ(nullptr, TcpUtil::GetNIList(nullptr));
    EXPECT_FALSE(TcpUtil::UpdateNIList());
    NetInterface::_use_calls(nullptr);
}

TEST(TcpUtilLifetime, is_balanced_by_each_thread_for_itself) {
    fake_system = {};
    fake_system.names["127.0.0.1"] = "localhost";
    NetInterface::_use_calls(&fake::calls);
    const size_t mutexes = ut_safe_pthread_mutex_state().num_in_use;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_TRUE(TcpUtil::Init());
                IPAddress ip;
                char name[256];
                EXPECT_TRUE(TcpUtil::Resolve("127.0.0.1:25", ip, TcpUtil::ADDR_BOTH));
                EXPECT_TRUE(TcpUtil::LookupHostName(ip, name, sizeof name));
                EXPECT_TRUE(TcpUtil::UpdateNIList());
                EXPECT_TRUE(TcpUtil::IsLocalIPAddress(ip));
                TcpUtil::Fini();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    NetInterface::_use_calls(nullptr);
    EXPECT_EQ(mutexes, ut_safe_pthread_mutex_state().num_in_use);
}

TEST_F(Resolver, knows_the_classful_networks) {
    const struct {
        const char* text;
        const char* name;
        const char* mask;
        const char* broadcast;
    } rows[] = {{"0.0.0.0", "A", "255.0.0.0", "255.255.255.255"},
                {"127.1.2.3", "A", "255.0.0.0", "127.255.255.255"},
                {"128.0.0.1", "B", "255.255.0.0", "128.0.255.255"},
                {"191.255.0.1", "B", "255.255.0.0", "191.255.255.255"},
                {"192.0.2.7", "C", "255.255.255.0", "192.0.2.255"},
                {"223.255.0.1", "C", "255.255.255.0", "223.255.0.255"},
                {"224.0.0.1", "", "255.255.255.255", "224.0.0.1"},
                {"fe80::1", "", "255.255.255.255", "ff02::1"}};
    for (const auto& row : rows) {
        IPAddress ip(row.text);
        ip.setScopeId(3);
        EXPECT_STREQ(row.name, TcpUtil::GetClass(ip.get_sockaddr(), ip.get_sockaddr_len()));
        EXPECT_EQ(row.mask + std::string(":0"), Text(TcpUtil::GetSubnetMaskBasedOnClass(ip)));
        const IPAddress broadcast = TcpUtil::GetBroadcastAddressBasedOnClass(ip);
        EXPECT_TRUE(broadcast.sameIPAddress(IPAddress(row.broadcast))) << row.text;
        EXPECT_EQ(ip.getScopeId(), broadcast.getScopeId());
    }
    EXPECT_EQ("(::1):0", Text(TcpUtil::GetLoopbackIPAddress(true)));
    EXPECT_EQ("127.0.0.1:0", Text(TcpUtil::GetLoopbackIPAddress(false)));
}

TEST_F(Resolver, counts_the_leading_bits_two_addresses_share) {
    const struct {
        const char* a;
        const char* b;
        uint32 bits;
    } rows[] = {{"192.0.2.7", "192.0.2.7", 32},
                {"10.0.0.1", "10.128.0.1", 8},
                {"2001:db8::1", "2001:db8::1", 128},
                {"2001:db8::1", "2001:db9::1", 31},
                {"::1", "0.0.0.1", 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.bits, TcpUtil::CalcNetworkMatchScore(IPAddress(row.a), IPAddress(row.b)))
            << row.a << " " << row.b;
    }
    EXPECT_EQ(0U, TcpUtil::CalcNetworkMatchScore(IPAddress(), IPAddress()));
}

TEST_F(Resolver, writes_texts_of_literals) {
    char buf[64];
    EXPECT_TRUE(TcpUtil::AddressToString("fe80::1", 25, buf, sizeof buf));
    EXPECT_STREQ("(fe80::1):25", buf);
    EXPECT_TRUE(TcpUtil::AddressToString("192.0.2.7:99", buf, sizeof buf));
    EXPECT_STREQ("192.0.2.7", buf);
    EXPECT_FALSE(TcpUtil::AddressToString(static_cast<const char*>(nullptr), buf, sizeof buf));
    UTStrOStream stream(buf, sizeof buf);
    EXPECT_TRUE(TcpUtil::ListenerAddrToUTOStream(IPAddress("[fe80::1]:25"), stream));
    EXPECT_FALSE(TcpUtil::ListenerAddrToUTOStream(IPAddress(), stream));
    stream.set_eof();
    EXPECT_STREQ("(fe80::1):25", buf);
    sockaddr_in sin = {};
    sin.sin_family = AF_INET;
    sin.sin_port = htons(25);
    EXPECT_TRUE(TcpUtil::AddressToString(&sin, buf, sizeof buf, true));
    EXPECT_STREQ("0.0.0.0:25", buf);
    // A family without a text of its own is written as its four bytes.
    sockaddr_storage other = {};
    other.ss_family = AF_APPLETALK;
    EXPECT_TRUE(TcpUtil::AddressToString(&other, sizeof other, buf, sizeof buf, false, false));
    EXPECT_STREQ("0.0.0.0", buf);
}

TEST_F(Resolver, finds_the_sites_domain_in_the_configuration) {
    const struct {
        const char* config;
        bool found;
    } rows[] = {{"search corp.example\n", true},    {"search CORP.Example.\t", true},
                {"search corp.example", true},      {"search a.corp.example b\n", true},
                {"search corp.examples\n", false},  {"search corp.example..\n", false},
                {"search corp\n.example\n", false}, {"", false}};
    const std::string path = testing::TempDir() + "/resolv." + std::to_string(getpid());
    for (const auto& row : rows) {
        std::ofstream(path) << row.config;
        EXPECT_EQ(row.found, TcpUtil::_ConfigNamesDomain(path.c_str(), "corp.example"))
            << row.config;
    }
    const std::string name = "corp.example";
    std::ofstream(path) << std::string(4096 - name.size(), 'x') << name << "x";
    EXPECT_TRUE(TcpUtil::_ConfigNamesDomain(path.c_str(), name.c_str()));
    std::ofstream(path) << std::string(4097 - name.size(), 'x') << name;
    EXPECT_FALSE(TcpUtil::_ConfigNamesDomain(path.c_str(), name.c_str()));
    unlink(path.c_str());
    EXPECT_FALSE(TcpUtil::_ConfigNamesDomain(path.c_str(), name.c_str()));
    EXPECT_FALSE(TcpUtil::_ConfigNamesDomain("/dev/null", ""));
}

TEST_F(Resolver, answers_questions_about_the_site_once_it_is_set) {
    EXPECT_FALSE(TcpUtil::IsOnInternalNetwork());
    EXPECT_FALSE(TcpUtil::IsOnInternalNetwork_Ex());
    bool any_private = false;
    NetworkInterface_iter iter(*TcpUtil::GetNIList(nullptr));
    for (; !iter.is_past(); iter.next()) {
        any_private = any_private || iter.get()->getIPAddress().isPrivateNet();
    }
    fake_system.hosts["probe"] = {"203.0.113.1"};
    TcpUtil::SetInternalNetwork(nullptr, "probe");
    EXPECT_EQ(any_private, TcpUtil::IsOnInternalNetwork_Ex());
    TcpUtil::SetInternalNetwork(nullptr, "unknown");
    EXPECT_FALSE(TcpUtil::IsOnInternalNetwork_Ex());
    TcpUtil::SetInternalNetwork(nullptr, nullptr);
}

}  // namespace
