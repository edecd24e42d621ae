#include "netlib/ipaddress.h"

#include <memory>

#include "tests/netlib/netlib_fixture.h"

namespace {

using Address = NetlibTest;

/// Of a literal with its port, and behind a "%" its scope id.
IPAddress Literal(const std::string& text) {
    const size_t percent = text.find('%');
    IPAddress ip(text.substr(0, percent).c_str());
    EXPECT_TRUE(ip.isValid()) << text;
    if (percent != text.npos) ip.setScopeId(static_cast<uint32>(std::stoul(&text[percent + 1])));
    return ip;
}

TEST_F(Address, is_classified_by_its_leading_bits) {
    const std::pair<const char*, e_IPv6AddressType> types[] = {
        {"127.0.0.1", addrUnknown},       {"::", addrReserved},
        {"::1", addrIPv4Compatible},      {"::ffff:127.0.0.1", addrIPv4Mapped},
        {"fd00::1", addrUnassigned},      {"3fff::", addrGlobalUnicast},
        {"febf::", addrLinkLocalUnicast}, {"feff::", addrSiteLocalUnicast},
        {"ff02::1", addrMulticast}};
    for (const auto& [text, type] : types) EXPECT_EQ(type, Literal(text).getIPv6AddressType());
    for (const char* own : {"10.0.0.0", "172.16.0.1", "172.31.255.255", "192.168.255.1", "fd00::1"})
        EXPECT_TRUE(Literal(own).isPrivateNet()) << own;
    for (const char* other :
         {"9.255.255.255", "172.15.0.1", "172.32.0.1", "192.169.1.1", "fe00::1"})
        EXPECT_FALSE(Literal(other).isPrivateNet()) << other;
}

TEST_F(Address, equals_another_by_host_alone) {
    const std::pair<const char*, bool> pairs[] = {
        {"192.0.2.7:25 192.0.2.7:587", true}, {"192.0.2.7 192.0.2.8", false},
        {"192.0.2.7 ::ffff:192.0.2.7", true}, {"::ffff:192.0.2.7 ::192.0.2.7", false},
        {"[::192.0.2.7]:1 192.0.2.7", true},  {"0.0.0.0 ::", false},
        {"fe80::1%2 [fe80::1]:2", true},      {"fe80::1%2 fe80::1%3", false},
        {"2001:db8::1 2001:db8::2", false}};
    for (const auto& [texts, same] : pairs) {
        const IPAddress a = Literal(Words(texts)[0]), b = Literal(Words(texts)[1]);
        EXPECT_TRUE(a.sameIPAddress(b) == same && b.sameIPAddress(a) == same) << texts;
    }
}

TEST_F(Address, takes_over_socket_addresses_of_the_internet_families_only) {
    IPAddress ip = Literal("192.0.2.7:25");
    ip.reset(ip.get_sockaddr(), 4096);  // beyond the storage, and its own bytes
    EXPECT_EQ(sizeof(sockaddr_storage), ip.get_sockaddr_len());
    EXPECT_EQ("192.0.2.7:25", Text(ip));
    const std::unique_ptr<IPAddress> copy(ip.clone());
    sockaddr_storage storage = {};
    for (const int family : {AF_INET6, AF_INET, AF_UNIX}) {
        storage.ss_family = static_cast<sa_family_t>(family);
        ip.reset(&storage, sizeof(sockaddr_in6));
        EXPECT_TRUE(ip.isValid() == (family != AF_UNIX) && ip.isIPv6() == (family == AF_INET6));
    }
    ip = *copy;
    EXPECT_EQ("192.0.2.7:25", Text(ip));
}

// Every text in buffers of every size: it fits exactly when there is room for its terminator, and
// nothing is written beyond the buffer.
TEST_F(Address, is_written_as_text_that_fits_or_is_refused) {
    fake_system.names["192.0.2.7"] = "mail.test";
    const struct {
        const char *literal, *with;  // port, name, scope
        std::string text;
    } rows[] = {{"192.0.2.7:25", "s", "192.0.2.7"},
                {"192.0.2.7:65535", "pn", "mail.test:65535"},
                {"[fe80::1]:25%2", "ps", "(fe80::1%2):25"},
                {"[fe80::1]:25%2", "pn", "(fe80::1):25"},
                {"[fe80::1]:25%2", "s", "fe80::1%2"},
                {"[fe80::1]:25%999", "ps", "(fe80::1%999):25"},
                {"[fe80::1]:25%1000", "ps", "(fe80::1):25"},
                {"[1:2:3:4:5:6:7:8]:1", "p", "(1:2:3:4:5:6:7:8):1"}};
    for (const auto& row : rows) {
        const auto with = [&row](char part) { return strchr(row.with, part) != nullptr; };
        for (size_t size = 0; size <= row.text.size() + 2; ++size) {
            std::string buf(size + 8, '#');
            const bool fits =
                Literal(row.literal).toString(buf.data(), size, with('p'), with('n'), with('s'));
            EXPECT_EQ(size > row.text.size(), fits) << row.text << " in " << size;
            EXPECT_TRUE(!fits || buf.c_str() == row.text) << buf;
            EXPECT_EQ("########", buf.substr(size)) << row.text << " in " << size;
        }
    }
    char buf[8];
    EXPECT_FALSE(IPAddress().toString(buf, sizeof buf, false, false, false));
    EXPECT_FALSE(Literal("1.2.3.4").toString(nullptr, 8, false, false, false));
}

}  // namespace
