#include "netlib/netutil.h"

#include <thread>

#include <net/if.h>

#include "netlib/hostanswer.h"
#include "netlib/netutil_site.h"
#include "netlib/netutil_state.h"
#include "tests/netlib/netlib_fixture.h"
#include "tests/netlib/scarcememory.h"
#include "tests/scratch.h"

namespace {

struct Question {
    const char* texts;  // words that all have the result
    const char* result;
    TcpUtil::eAddressType type = TcpUtil::ADDR_BOTH;
};

class Resolver : public NetlibTest {
  protected:
    using NetlibTest::NetlibTest;
    /// All addresses that a text resolves to, joined by blanks; "-" for a failure. The first is
    /// what the text gives where one address is asked for.
    static std::string All(const char* text, TcpUtil::eAddressType type = TcpUtil::ADDR_BOTH) {
        IPAddress_list list;
        IPAddress first(0x01020304U);
        const bool found = TcpUtil::Resolve(text, first, type);
        EXPECT_EQ(found, TcpUtil::ResolveAll(text, list, type)) << text;
        EXPECT_EQ(found ? Text(*list.get_first()) : "1.2.3.4:0", Text(first));
        std::string result(list.is_empty() ? "-" : "");
        for (IPAddress_iter iter(list); !iter.is_past(); iter.next())
            result.append(result.empty() ? "" : " ").append(Text(*iter.get()));
        list.delete_all();
        return result;
    }
    static void Ask(std::initializer_list<Question> questions) {
        for (const Question& question : questions) {
            for (const std::string& text : Words(question.texts))
                EXPECT_EQ(question.result, All(text.c_str(), question.type)) << text;
        }
    }
};
struct ResolverWithoutIPv6 : Resolver {
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
        {"6p", "1:2:3:4:5:6:7:8 1:2:3:4:5:6:7: :1:2:3:4:5:6:7 :: AbCd::eF09 1:2:3:4:5:6:1.2.3.4 "
               "::1.2.3.0000000000000000000000000000000000000000000000000004 fe80::1%eth0 "
               "fe80::1% [::1] (::1) [fe80::1%2]"},
        {"p", "1.2.3.4:80 1.2.3.4: 1.2.3.4:65535 (fe80::1%eth0):25 [::1]:25 [::1]: "
              "[::1]:65535"},
        {"", "1.2.3.256 1.2.3.99999999999999999999 1.2.3 1.2.3.4. 1.2.3.-4 1.2.3.a 1.2.3.4:65536 "
             "1.2.3.4:8.0 1.2:3.4.5 1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 1:2:3:4:5:6:7:: : ::: 1::2::3 "
             "12345:: ::g 1:2:3:4:5:1.2.3.4 ::1.2.3.256 ::1.2.3 ::1.2.3.4a ::.2.3.4 fe80::1%eth0.5 "
             "::1.2.3.00000000000000000000000000000000000000000000000000004 fe80::1%2%3 [::1) [::1 "
             "::1] [[::1]] 1[::1] [:] [::1]x [::1]:65536 [::1]:000025 [::1]25 localhost"}};
    for (const auto& group : groups) {
        for (const std::string& text : Words(group.texts)) {
            EXPECT_EQ(group.accepted_by, Acceptance(text.c_str())) << text;
        }
    }
    for (const char* text : {"", " 1.2.3.4", "[::1]:2 ", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ("", Acceptance(text));
    }
}

TEST(Literals, give_out_the_port_number_as_far_as_it_is_one) {
    for (const char* none : {"host:65536", "[::1]", "::1", static_cast<const char*>(nullptr)})
        EXPECT_EQ(0, TcpUtil::GetPortNumber(none));
    for (const char* text : {"host: \t25x", "[::1]:25"})
        EXPECT_EQ(25, TcpUtil::GetPortNumber(text));
}

TEST_F(Resolver, understands_every_form_of_literal) {
    fake_system.hosts["host"] = {"203.0.113.1"};
    Ask({{"192.0.2.7", "192.0.2.7:0"},
         {"192.0.2.7:0025", "192.0.2.7:25"},
         {"192.0.2.7:65536 192.0.2.7:x 192.0.2.7: 1..2.3 (2001:db8::1): 1:2:3:4:5:6:7: "
          "fe80::1%nosuchif :25 host:65536 host:",
          "-"},
         {"255.255.255.255", "255.255.255.255:0"},
         {"255.255.255.255:9", "255.255.255.255:9"},
         {"2001:db8::1 [2001:db8::1]", "(2001:db8::1):0"},
         {"[2001:db8::1]:25 (2001:db8::1):25", "(2001:db8::1):25"},
         {"::ffff:192.0.2.7", "(::ffff:192.0.2.7):0"},
         {"host:65535x", "203.0.113.1:65535"}});
    for (const char* text : {"", "host: 25", static_cast<const char*>(nullptr)})
        EXPECT_EQ("-", All(text));
}

TEST_F(Resolver, takes_a_scope_by_name_or_number) {
    const std::string index = std::to_string(if_nametoindex("lo"));
    if (index == "0") GTEST_SKIP() << "no interface named lo";
    fake_system.hosts["host"] = {"fe80::1", "fe80::2"};
    fake_system.hosts["mixed"] = {"203.0.113.1", "fe80::2"};
    fake_system.hosts["host%none"] = {"203.0.113.2"};
    const std::string rows[][2] = {
        {"fe80::1%" + index, "(fe80::1%" + index + "):0"},
        {"[fe80::1%lo]", "(fe80::1%" + index + "):0"},
        // A name may carry one too; only the first address gets it, and only if it is IPv6.
        {"host%lo:25", "(fe80::1%" + index + "):25 (fe80::2):25"},
        {"mixed%lo", "203.0.113.1:0 (fe80::2):0"},
        // One that names no interface stays in the text.
        {"host%none", "203.0.113.2:0"},
        {"host%4294967297", "-"}};
    for (const auto& [text, result] : rows) EXPECT_EQ(result, All(text.c_str())) << text;
}

TEST_F(Resolver, keeps_the_order_of_the_system_and_takes_the_type_asked_for) {
    fake_system.hosts["host"] = {"2001:db8::1", "203.0.113.1", "2001:db8::2", "203.0.113.2"};
    Ask({{"host", "(2001:db8::1):0 203.0.113.1:0 (2001:db8::2):0 203.0.113.2:0"},
         {"host:25", "203.0.113.1:25 203.0.113.2:25", TcpUtil::ADDR_IPv4},
         {"host", "(2001:db8::1):0 (2001:db8::2):0", TcpUtil::ADDR_IPv6},
         {"::1", "-", TcpUtil::ADDR_IPv4},
         {"1.2.3.4", "-", TcpUtil::ADDR_IPv6},
         {"255.255.255.255", "255.255.255.255:0", TcpUtil::ADDR_IPv6}});
    IPAddress ip;
    EXPECT_TRUE(TcpUtil::Resolve("host:1", 587, ip, TcpUtil::ADDR_IPv4));
    EXPECT_EQ("203.0.113.1:587", Text(ip));
}

// Calls `attempt` with one request for memory after the other failing, until none is left to fail;
// after each failure `untouched` holds.
template <class Attempt, class Untouched>
void fail_each_request(Attempt attempt, Untouched untouched) {
    for (int number = 0; number < 100; ++number) {
        {
            const auto scarce = ScarceMemory::after(number);
            if (attempt()) {
                EXPECT_TRUE(number > 0 && !scarce.has_failed()) << "it went unnoticed";
                return;
            }
        }
        EXPECT_TRUE(untouched()) << number;
    }
    ADD_FAILURE() << "never succeeds";
}

TEST_F(Resolver, without_memory_finds_nothing_and_leaves_its_target_alone) {
    fake_system.hosts["host"] = {"2001:db8::1", "203.0.113.1"};
    fake_system.hosts["thishost"] = {"203.0.113.1"};
    for (const char* text : {"host", "192.0.2.7", "255.255.255.255"}) {
        IPAddress_list list;
        fail_each_request([&] { return TcpUtil::ResolveAll(text, list, TcpUtil::ADDR_BOTH); },
                          [&] { return list.is_empty(); });
        list.delete_all();
    }
    char** names = nullptr;
    fail_each_request([&] { return TcpUtil::LookupHostNames(&names); },
                      [&] { return names == nullptr; });
    TcpUtil::FreeHostNames(names);
    fail_each_request([] { return TcpUtil::GetNIList(nullptr) != nullptr; },
                      [] { return TcpUtil::NIList.is_empty(); });
}

TEST_F(Resolver, asks_again_for_IPv4_and_cuts_a_host_that_is_too_long_from_its_port) {
    fake_system.hosts["host"] = {"2001:db8::1"};
    const std::string longest(254, 'a');
    IPAddress_list list;
    EXPECT_FALSE(TcpUtil::ResolveAll("host", list, TcpUtil::ADDR_IPv4));
    for (const std::string& text : {longest + "b:x", longest + ":x", longest.substr(1) + ":x"})
        EXPECT_FALSE(TcpUtil::ResolveAll(text.c_str(), list, TcpUtil::ADDR_BOTH));
    EXPECT_EQ(std::vector<std::string>({"host", "host", longest, longest}), fake_system.lookups);
}

TEST_F(ResolverWithoutIPv6, resolves_IPv4_alone) {
    fake_system.hosts["host"] = {"203.0.113.1", "203.0.113.2"};
    Ask({{"host:25", "203.0.113.1:25 203.0.113.2:25"},
         {"unknown [2001:db8::1]:25", "-"},
         {"host", "-", TcpUtil::ADDR_IPv6},
         {"192.0.2.7:25", "192.0.2.7:25"},
         {"1..2.3", "255.255.255.255:0"}});
}

// Literals, for which the C library asks no name server.
TEST(SystemResolver, answers_in_the_room_given) {
    HostAnswer one, other;
    const hostent* const first = NetInterface::_gethostbyname("192.0.2.7", one);
    EXPECT_NE(nullptr, NetInterface::_gethostbyname("192.0.2.8", other));
    EXPECT_TRUE(first != nullptr && memcmp(first->h_addr_list[0], "\xC0\0\2\7", 4) == 0);
}

TEST_F(Resolver, looks_up_names) {
    fake_system.names["192.0.2.7"] = "mail.test";
    char name[10];
    EXPECT_TRUE(TcpUtil::LookupHostName(IPAddress("192.0.2.7"), name, sizeof name));
    EXPECT_STREQ("mail.test", name);
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress("192.0.2.7"), name, sizeof name - 1));
    EXPECT_FALSE(TcpUtil::LookupHostName(IPAddress("192.0.2.8"), name, sizeof name));
}

TEST(TcpUtilLifetime, loads_once_and_unloads_after_the_last_fini) {
    fake_system = {};
    fake_system.hosts["host"] = {"203.0.113.1"};
    NetInterface::_use_calls(&fake::calls);
    const size_t mutexes = ut_safe_pthread_mutex_state().num_in_use;
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(TcpUtil::Init() && TcpUtil::Init());
        EXPECT_EQ(mutexes + 3, ut_safe_pthread_mutex_state().num_in_use);
        TcpUtil::Fini();
        EXPECT_TRUE(TcpUtil::IsIPv6Supported());
        for (int more = 0; more < 2; ++more) TcpUtil::Fini();
        EXPECT_FALSE(TcpUtil::IsIPv6Supported());
        EXPECT_EQ(mutexes, ut_safe_pthread_mutex_state().num_in_use);
    }
    EXPECT_EQ(2, fake_system.probes);
    // What needs a lock fails while there is none.
    EXPECT_TRUE(!IPAddress("host").isValid() && IPAddress("192.0.2.7").isValid());
    EXPECT_TRUE(TcpUtil::GetNIList(nullptr) == nullptr && !TcpUtil::UpdateNIList());
    NetInterface::_use_calls(nullptr);
}

TEST_F(NetlibTest, is_loaded_by_each_thread_for_itself) {
    fake_system.names["127.0.0.1"] = "localhost";
    TcpUtil::Fini();
    const auto user = [] {
        for (int round = 0; round < 20; ++round) {
            EXPECT_TRUE(TcpUtil::Init());
            const IPAddress ip("127.0.0.1:25");
            char name[256];
            EXPECT_TRUE(TcpUtil::LookupHostName(ip, name, sizeof name));
            EXPECT_TRUE(TcpUtil::UpdateNIList() && TcpUtil::IsLocalIPAddress(ip));
            TcpUtil::Fini();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(user);
    for (std::thread& thread : threads) thread.join();
}

TEST_F(Resolver, knows_the_classful_networks) {
    const char* const rows[][3] = {{"127.1.2.3", "255.0.0.0:0", "127.255.255.255:0"},
                                   {"128.0.0.1", "255.255.0.0:0", "128.0.255.255:0"},
                                   {"223.255.0.1", "255.255.255.0:0", "223.255.0.255:0"},
                                   {"fe80::1%3", "255.255.255.255:0", "(ff02::1%3):0"}};
    for (const auto& [text, mask, all] : rows) {
        EXPECT_EQ(mask, Text(TcpUtil::GetSubnetMaskBasedOnClass(IPAddress(text))));
        EXPECT_EQ(all, Text(TcpUtil::GetBroadcastAddressBasedOnClass(IPAddress(text))));
    }
}

TEST_F(Resolver, writes_an_address_by_its_family_whatever_length_stands_beside_it) {
    for (const char* literal : {"(fe80::1%2):25", "192.0.2.7:25"}) {
        IPAddress ip(literal);
        *ip.get_sockaddr_len_ptr() = 4;
        EXPECT_EQ(literal, Text(ip));
    }
}

TEST_F(Resolver, knows_the_site_by_the_first_4096_bytes_of_its_configuration) {
    const std::string name = "corp.example", x(4096 - name.size(), 'x');
    const std::pair<std::string, bool> configs[] = {{"search CORP.Example.\t", true},
                                                    {"search corp.examples\n", false},
                                                    {x + name + "x", true},
                                                    {x + "x" + name, false}};
    const ScratchFolder folder;
    for (const auto& [config, found] : configs) {
        const std::string path = folder.file_with("resolv.conf", config);
        EXPECT_EQ(found, TcpUtil::_ConfigNamesDomain(path.c_str(), name.c_str())) << config;
    }
}

}  // namespace
