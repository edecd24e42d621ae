#include <fstream>
#include <memory>
#include <set>

#include <ifaddrs.h>

#include "netlib/netinterface.h"
#include "netlib/unix_nilist.h"
#include "tests/netlib/netlib_fixture.h"

namespace {

std::string WithMask(const NetworkInterface& entry) {
    char address[80] = "-", mask[80] = "-", broadcast[80] = "-";
    entry.getIPAddress(address, sizeof address);
    entry.getNetMask(mask, sizeof mask);
    entry.getBroadcastAddress(broadcast, sizeof broadcast);
    return std::string(entry.getName()) + " " + address + " " + mask + " " + broadcast;
}

using Entries = std::vector<std::string>;

/// Reads made-up lists from files.
class MadeUpList : public NetlibTest {
  protected:
    explicit MadeUpList(bool ipv6 = true) : NetlibTest(ipv6) {}
    ~MadeUpList() override {
        _list.delete_all();
        unlink(_dev.c_str());
        unlink(_if_inet6.c_str());
    }

    /// The entries read, which stay in _list.
    Entries Read(const std::string& dev, const std::string& if_inet6) {
        std::ofstream(_dev) << dev;
        std::ofstream(_if_inet6) << if_inet6;
        unsigned long count = 0;
        _list.delete_all();
        EXPECT_TRUE(_reader.Read(_list, count));
        Entries entries;
        for (NetworkInterface_iter at(_list); !at.is_past(); at.next())
            entries.push_back(WithMask(*at.get()));
        EXPECT_EQ(count, entries.size());
        return entries;
    }

    const std::string _dev = testing::TempDir() + "/nilist." + std::to_string(getpid());
    const std::string _if_inet6 = _dev + ".if_inet6";
    const NIListReader _reader{{_dev.c_str(), _if_inet6.c_str()}};
    NetworkInterface_list _list;
};
using MadeUpListWithoutIPv6 = WithoutIPv6<MadeUpList>;

constexpr const char* made_up_ipv4 = "lo0 127.0.0.1 255.0.0.0 127.255.255.255";
constexpr const char* made_up_ipv6 = "lo0 ::1 - ::1";
const std::string loopback = "00000000000000000000000000000001 01 80 10 08       lo\n";

TEST_F(MadeUpList, without_loopback_gets_one) {
    // Lines without ":" are headers; interfaces without an IPv4 address drop out. The flags of an
    // IPv6 entry are asked for the bit that makes an interface a loopback one.
    EXPECT_EQ(Entries({"lo ::1%1 - ::1%1", made_up_ipv4, made_up_ipv6}),
              Read("Inter-| Receive\n face |bytes\n  nosuchif: 1 2 3\n",
                   "00000000000000000000000000000001 01 80 10 80       lo\n"));
    const NetworkInterface& entry = *_list.next(_list.get_first());
    EXPECT_TRUE(entry.isLoopback() && entry.isVisible() && entry.supportsIPv4());
    EXPECT_FALSE(entry.supportsIPv6() || entry.isUp() || entry.hasBroadcast());
    EXPECT_EQ(0U, entry.getIfIndex());
}

TEST_F(MadeUpListWithoutIPv6, has_no_IPv6_entries) {
    EXPECT_EQ(Entries({made_up_ipv4}), Read("", loopback));
}

TEST_F(MadeUpList, takes_IPv6_addresses_with_scope_and_all_nodes_broadcast) {
    EXPECT_EQ(
        Entries({"eth0 fe80::fc:ff:fe00:1%4 - ff02::1%4", "dummy0 2001:db8::1%291 - ff02::1%291",
                 "longname 2001:db8::2%5 - ff02::1%5", "lo ::1%1 - ::1%1"}),
        Read("", "fe8000000000000000fc00fffe000001 04 40 20 80     eth0\n"
                 "20010db8000000000000000000000001 123 40 00 80   dummy0\n"
                 "20010db8000000000000000000000002 05 40 00 0 longnameandmore\n" +
                     loopback.substr(0, loopback.size() - 1)));  // no line end
    const NetworkInterface& entry = *_list.next(_list.get_first());
    EXPECT_TRUE(entry.getIfIndex() == 0x123U && entry.getFlags() == 0x80);
    EXPECT_TRUE(entry.supportsIPv6() && !entry.supportsIPv4() && !entry.getNetMask().isValid());
}

TEST_F(MadeUpList, skips_lines_that_do_not_parse) {
    const std::string address = "20010db8000000000000000000000001", rest = " 01 80 10 80 eth0\n";
    std::string bad = "\ngarbage\n" + address.substr(1) + rest + address + "0" + rest +
                      address.substr(1) + "g" + rest + address.substr(0, 30) + ":" + rest +
                      address + " zz 80 10 80 eth0\n" + std::string(5000, 'f') + rest +
                      std::string(1023, ' ') + loopback + std::string("\0\0\0\n", 4);
    for (size_t length = 0; length <= address.size() + 13; ++length)  // up to the name
        bad += (address + " 05 40 00 80 ").substr(0, length) + "\n";
    EXPECT_EQ(Entries({"lo ::1%1 - ::1%1"}), Read(bad, bad + loopback + address));
    EXPECT_EQ(Entries({made_up_ipv4, made_up_ipv6}),
              Read(std::string(2000, 'n') + ":\n" + std::string(500, 'n') + ":\n:\n", ""));
}

TEST_F(MadeUpList, counts_lines) {
    Read("header\n  lo: 1\n eth0: 2\n", "a\nb\n");
    EXPECT_EQ(4, _reader.CountLines());
    unlink(_if_inet6.c_str());
    EXPECT_EQ(2, _reader.CountLines());
    unlink(_dev.c_str());
    unsigned long count = 0;
    EXPECT_TRUE(_reader.CountLines() == -1 && !_reader.Read(_list, count));
    // A folder opens, but is not read.
    for (const a_ni_source& source : {a_ni_source{.dev = "/"}, a_ni_source{.if_inet6 = "/"}})
        EXPECT_TRUE(!NIListReader(source).Read(_list, count) && _list.is_empty());
}

/// What a list says of an entry, with the name cut as the kernel's IPv6 list is read.
std::string Entry(const char* name, IPAddress address, const IPAddress& mask) {
    address.setScopeId(0);
    return std::string(name, strnlen(name, address.isIPv6() ? 8 : 255)) + " " + Text(address) +
           " " + Text(mask);
}

IPAddress Taken(const sockaddr* sa) {
    return IPAddress(reinterpret_cast<const sockaddr_storage*>(sa),
                     sa->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
}

// The interface calls give the first IPv4 address of each interface, the kernel's IPv6 list all of
// them.
TEST(HostList, agrees_with_the_c_librarys) {
    ifaddrs* first = nullptr;
    ASSERT_EQ(0, getifaddrs(&first));
    std::set<std::string> expected, seen, listed;
    for (const ifaddrs* at = first; at != nullptr; at = at->ifa_next) {
        const int family = at->ifa_addr != nullptr ? at->ifa_addr->sa_family : AF_UNSPEC;
        if (family == AF_INET && seen.insert(at->ifa_name).second)
            expected.insert(Entry(at->ifa_name, Taken(at->ifa_addr), Taken(at->ifa_netmask)));
        if (family == AF_INET6)
            expected.insert(Entry(at->ifa_name, Taken(at->ifa_addr), IPAddress()));
    }
    freeifaddrs(first);

    ASSERT_TRUE(TcpUtil::Init());
    for (NetworkInterface_iter it(*TcpUtil::GetNIList(nullptr)); !it.is_past(); it.next()) {
        const NetworkInterface& entry = *it.get();
        if (entry.getIfIndex() == 0) continue;  // made up
        listed.insert(Entry(entry.getName(), entry.getIPAddress(), entry.getNetMask()));
        if (!entry.supportsIPv6() && !entry.hasBroadcast()) {
            const int host_bits = ~int(entry.getNetMask());
            EXPECT_EQ(int(entry.getIPAddress()) | host_bits, int(entry.getBroadcastAddress()));
        }
        EXPECT_NE(nullptr, TcpUtil::_find_interface_by_name(entry.getName()));
        EXPECT_TRUE(TcpUtil::IsLocalIPAddress(entry.getIPAddress()));
    }
    EXPECT_EQ(expected, listed);
    EXPECT_GE(NetworkInterface::getNumNICs(), static_cast<int>(listed.size()));
    TcpUtil::Fini();
}

TEST_F(NetlibTest, host_list_is_kept_while_the_interfaces_stay_the_same) {
    NetworkInterface_list* const list = TcpUtil::GetNIList(nullptr);
    ASSERT_NE(nullptr, list);
    EXPECT_TRUE(TcpUtil::UpdateNIList());
    EXPECT_EQ(list, TcpUtil::GetNIList(nullptr));
    // A reading that differs takes its place; who walks the former one may go on.
    list->get_first()->setPortNumber(25);
    EXPECT_TRUE(TcpUtil::UpdateNIList());
    NetworkInterface_list* const newer = TcpUtil::GetNIList(nullptr);
    EXPECT_NE(list, newer);
    EXPECT_EQ(25, list->get_first()->getPortNumber() - newer->get_first()->getPortNumber());
}

TEST_F(NetlibTest, local_addresses_are_those_of_the_interfaces) {
    const IPAddress local("127.0.0.1");
    EXPECT_TRUE(TcpUtil::IsLocalIPAddress("127.0.0.1"));
    EXPECT_TRUE(TcpUtil::IsLocalIPAddress(local.get_sockaddr(), local.get_sockaddr_len()));
    const NetworkInterface* const found = TcpUtil::FindInterfaceByIPAddress(local);
    EXPECT_TRUE(found != nullptr && found->getIPAddress() == 0x7F000001U);
    for (const char* other : {"203.0.113.77", "no.such.host"}) {
        EXPECT_FALSE(TcpUtil::IsLocalIPAddress(other));
        EXPECT_EQ(nullptr, TcpUtil::FindInterfaceByIPAddress(IPAddress(other)));
    }
    EXPECT_EQ(nullptr, TcpUtil::_find_interface_by_name("nosuchif"));
}

TEST_F(NetlibTest, interface_derives_mask_and_broadcast_from_the_class) {
    NetworkInterface entry;
    entry.setName("test", 4);
    entry.setIPAddress(IPAddress("172.16.5.6"));
    EXPECT_EQ("test 172.16.5.6 255.255.0.0 172.16.255.255", WithMask(entry));
    for (const char* mask : {"::1", "255.255.255.0"}) entry.setNetMask(IPAddress(mask));
    EXPECT_EQ("test 172.16.5.6 255.255.255.0 172.16.255.255", WithMask(entry));
    EXPECT_TRUE(entry.isAddressInSameSubnet(IPAddress("172.16.5.99")));
    for (const char* other : {"172.16.6.6", "::ffff:172.16.5.6"})
        EXPECT_FALSE(entry.isAddressInSameSubnet(IPAddress(other))) << other;

    IPAddress v6("fe80::1");
    v6.setScopeId(3);
    entry.setIPAddress(v6.get_sockaddr(), v6.get_sockaddr_len());
    entry.setNetMask(IPAddress("255.255.255.0"));
    EXPECT_TRUE(entry.supportsIPv4() && entry.supportsIPv6() && !entry.getNetMask().isValid());
    EXPECT_EQ("test fe80::1%3 - ff02::1%3", WithMask(entry));

    const std::unique_ptr<NetworkInterface> clone(entry.clone());
    EXPECT_TRUE(clone->isSameEntry(entry));
    clone->setName(std::string(300, 'n').c_str(), 300);
    EXPECT_EQ(255U, strlen(clone->getName()));
}

TEST(Interface, writes_its_hardware_address_into_buffers_that_hold_it) {
    const NetworkInterface entry;
    char buf[18];
    EXPECT_TRUE(!entry.getMACAddress(buf, 17) && entry.getMACAddress(buf, 18));
    EXPECT_STREQ("00:00:00:00:00:00", buf);
    for (const char* none : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_TRUE(!entry.getMACAddressInTransOrder(buf, 12, none) &&
                    entry.getMACAddressInTransOrder(buf, 13, none));
        EXPECT_STREQ("000000000000", buf);
    }
    EXPECT_FALSE(entry.getMACAddress(nullptr, 18));
}

}  // namespace
