// Every short text that could be an address, with inet_pton(3) beside the library's reader.

#include "tests/netlib/netlib_fixture.h"
#include "tests/world.h"

namespace {

using AllLiterals = NetlibTest;

/// The address that is the whole of `text`, as the system reads it; not valid where it reads none.
IPAddress read_by_system(const std::string& text) {
    sockaddr_storage address = {};
    auto& v4 = reinterpret_cast<sockaddr_in&>(address);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        address.ss_family = AF_INET;
        return {&address, sizeof v4};
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        address.ss_family = AF_INET6;
        return {&address, sizeof v6};
    }
    return IPAddress();
}

/// The address in "[address%scope]:port" or "address:port".
std::string bare(std::string text) {
    text.resize(std::min(text.find_first_of("%)]"), text.size()));
    std::erase_if(text, [](char c) { return c == '(' || c == '['; });
    const std::size_t colon = text.find(':');
    return text.find('.') < colon ? text.substr(0, colon) : text;
}

bool is_read_alike(const std::string& text) {
    const bool is_address = read_by_system(text).isValid();
    const bool is_literal = TcpUtil::IsIPAddress(text.c_str(), true);
    if (is_address && !TcpUtil::IsIPAddress(text.c_str(), false)) return false;
    IPAddress ip;
    if (!is_literal || !ip.reset(text.c_str())) return !is_address;
    return ip.sameIPAddress(read_by_system(bare(text)));
}

TEST_F(AllLiterals, of_up_to_seven_characters_are_read_as_the_system_reads_them) {
    EXPECT_TRUE(world::holds_for_all(world::letters("19f:.%([]"), 7, is_read_alike));
    EXPECT_TRUE(fake_system.lookups.empty()) << "a literal is not looked up";
}

}  // namespace
