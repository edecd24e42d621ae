#include <fstream>

#include "netlib/netinterface.h"
#include "netlib/unix_nilist.h"
#include "tests/netlib/netlib_fixture.h"
#include "tests/scratch.h"

namespace {

std::string with_mask(const NetworkInterface& entry) {
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
    ~MadeUpList() override { _list.delete_all(); }

    /// The entries read, which stay in _list.
    Entries read(const std::string& dev, const std::string& if_inet6) {
        std::ofstream(_dev) << dev;
        std::ofstream(_if_inet6) << if_inet6;
        unsigned long count = 0;
        _list.delete_all();
        EXPECT_TRUE(_reader.Read(_list, count));
        Entries entries;
        for (NetworkInterface_iter at(_list); !at.is_past(); at.next())
            entries.push_back(with_mask(*at.get()));
        EXPECT_EQ(count, entries.size());
        return entries;
    }

    const ScratchFolder _folder;
    const std::string _dev = _folder.file("dev"), _if_inet6 = _folder.file("if_inet6");
    const NIListReader _reader{{_dev.c_str(), _if_inet6.c_str()}};
    NetworkInterface_list _list;
};

constexpr const char* made_up_ipv4 = "lo0 127.0.0.1 255.0.0.0 127.255.255.255";
constexpr const char* made_up_ipv6 = "lo0 ::1 - ::1";
const std::string loopback = "00000000000000000000000000000001 01 80 10 08       lo\n";

TEST_F(MadeUpList, without_loopback_gets_one) {
    // Lines without ":" are headers; interfaces without an IPv4 address drop out. The flags of an
    // IPv6 entry are asked for the bit that makes an interface a loopback one.
    EXPECT_EQ(Entries({"lo ::1%1 - ::1%1", made_up_ipv4, made_up_ipv6}),
              read("Inter-| Receive\n face |bytes\n  nosuchif: 1 2 3\n",
                   "00000000000000000000000000000001 01 80 10 80       lo\n"));
    const NetworkInterface& entry = *_list.next(_list.get_first());
    EXPECT_TRUE(entry.isLoopback() && entry.supportsIPv4() && !entry.supportsIPv6());
}

TEST_F(MadeUpList, takes_IPv6_addresses_with_scope_and_all_nodes_broadcast) {
    EXPECT_EQ(Entries({"eth0 fe80::fc:ff:fe00:1%4 - ff02::1%4",
                       "longname 2001:db8::2%5 - ff02::1%5", "lo ::1%1 - ::1%1"}),
              read("", "fe8000000000000000fc00fffe000001 04 40 20 80     eth0\n"
                       "20010db8000000000000000000000002 05 40 00 0 longnameandmore\n" +
                           loopback.substr(0, loopback.size() - 1)));  // no line end
}

TEST_F(MadeUpList, skips_lines_that_do_not_parse) {
    const std::string address = "20010db8000000000000000000000001", rest = " 01 80 10 80 eth0\n";
    std::string bad = "\ngarbage\n" + address.substr(1) + rest + address + "0" + rest +
                      address.substr(1) + "g" + rest + address.substr(0, 30) + ":" + rest +
                      address + " zz 80 10 80 eth0\n" + std::string(5000, 'f') + rest +
                      std::string(1023, ' ') + loopback + std::string("\0\0\0\n", 4);
    for (size_t length = 0; length <= address.size() + 13; ++length)  // up to the name
        bad += (address + " 05 40 00 80 ").substr(0, length) + "\n";
    EXPECT_EQ(Entries({"lo ::1%1 - ::1%1"}), read(bad, bad + loopback + address));
    const NIListReader folder{{.dev = "/"}};  // which opens, but is not read
    unsigned long count = 0;
    EXPECT_FALSE(folder.Read(_list, count));
    EXPECT_EQ(Entries({made_up_ipv4, made_up_ipv6}),
              read(std::string(2000, 'n') + ":\n" + std::string(500, 'n') + ":\n:\n", ""));
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

}  // namespace
