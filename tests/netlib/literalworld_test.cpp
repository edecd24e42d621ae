// Every short text that could be an address, with inet_pton(3) beside the library's reader.

#include <regex.h>

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

/// An extended regular expression (regex(7)) for whole texts, for good.
struct Grammar {
    explicit Grammar(const std::string& whole) {
        EXPECT_EQ(0, regcomp(&pattern, ("^(" + whole + ")$").c_str(), REG_EXTENDED | REG_NOSUB));
    }
    bool has(const std::string& text) const {
        return regexec(&pattern, text.c_str(), 0, nullptr, 0) == 0;
    }
    regex_t pattern = {};
};

// What a literal of up to seven of the letters below may be, but for "::" in an IPv6 one.
// Kept: an IPv4 number may be missing, and groups too; a bracket opens in front or behind a colon.
const std::string dots = "(\\.1{0,3}){3}", port = "(:1*)?";
const std::string group = "([1f]{0,4}|1{1,3}" + dots + ")", groups = "(" + group + ":)*";
const std::string bare = groups + group + "(%[1f]*)?";
const Grammar ipv4("1{0,3}" + dots + port);
const Grammar ipv6(bare + "|" + groups + "(\\(" + bare + "\\)|\\[" + bare + "\\])" + port);

bool has_one_gap(std::string_view text) {
    const std::size_t gap = text.find("::");
    return gap != text.npos && text.find("::", gap + 1) == text.npos;
}

bool is_read_alike(const std::string& text) {
    const bool is_ipv4 = ipv4.has(text);
    const bool is_literal = is_ipv4 || (has_one_gap(text) && ipv6.has(text));
    const bool passes_bare = TcpUtil::IsIPAddress(text.c_str(), false);
    if (TcpUtil::IsIPAddress(text.c_str(), true) != is_literal) return false;
    if (!is_literal) return !passes_bare && !read_by_system(text).isValid();

    const std::size_t end = std::min(text.find_first_of(is_ipv4 ? ":" : ")]"), text.size());
    const std::string behind = text.substr(end + (is_ipv4 || end == text.size() ? 0 : 1));
    std::string address = text.substr(0, std::min(end, text.find('%')));
    std::erase_if(address, [](char c) { return c == '(' || c == '['; });
    if (passes_bare != behind.empty()) return false;
    const IPAddress expected = read_by_system(address);
    IPAddress ip;
    // Which scopes there are is the machine's matter.
    if (!ip.reset(text.c_str()))
        return !expected.isValid() || text.find('%') != text.npos || behind == ":";
    const int number = behind.empty() ? 0 : std::stoi(behind.substr(1));
    return ip.sameIPAddress(expected) && ip.getPortNumber() == number;
}

TEST_F(AllLiterals, of_up_to_seven_characters_are_read_as_the_system_reads_them) {
    EXPECT_TRUE(world::holds_for_all(world::letters("1f:.%()[]"), 7, is_read_alike));
    EXPECT_TRUE(fake_system.lookups.empty()) << "a literal is not looked up";
}

}  // namespace
