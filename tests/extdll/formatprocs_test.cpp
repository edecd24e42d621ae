#include "extdll/procedures.h"
#include "tests/extdll/fakehost.h"

namespace {

using Values = std::vector<std::optional<std::string>>;
using Strings = std::vector<std::string>;

const std::string long_word(300, 'w');

std::string repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

FakeHost& give_values(FakeHost& host, const std::string& format, const Values& values) {
    host.arguments.clear();
    host.give(2, format);
    for (uint32 i = 0; i < values.size(); ++i) host.give(3 + i, values[i]);
    return host;
}

std::vector<SetCall> formatted(std::optional<std::string> text) {
    return {{1, EXTFN_TYPE_STRING, std::move(text)}, {0, EXTFN_TYPE_INT32, std::nullopt}};
}

std::vector<SetCall> scan(FakeHost& host, const std::string& input, const std::string& format) {
    return host.give(1, input).give(2, format).call(xp_scanf);
}

// `values`, followed by NULL up to the last of the `parameters`.
std::vector<SetCall> scanned(const Strings& values, uint32 parameters = 50) {
    std::vector<SetCall> calls;
    for (uint32 i = 0; i < parameters; ++i) {
        calls.push_back({3 + i, EXTFN_TYPE_STRING, std::nullopt});
        if (i < values.size()) calls.back().bytes = values[i];
    }
    return calls;
}

}  // namespace

TEST(Sprintf, formats_strings_as_the_c_library_does) {
    const struct {
        std::string format;
        Values values;
        std::string text;
    } cases[] = {
        {"%s-%s", {"a", "b", {}}, "a-b"},
        {"100%% %s", {"sure", {}}, "100% sure"},
        {"[%5s|%-5s|%.2s|%-4.1s|%05s|%+ #'Is]",
         {"a", "b", "cde", "f", "g", "h", {}},
         "[    a|b    |cd|f   |    g|h]"},
        {"%2$s %1$s %2$4s", {"a", "b", {}}, "b a    b"},
        {"%s|%.3s|%s", {{}, "never read", "nor this"}, "(null)||"},
        {"%s", {long_word, {}}, std::string(254, 'w')},
        {"%260s", {std::string(259, 'y'), {}}, " " + std::string(253, 'y')},
        {"%.99999999999s", {"x", {}}, "x"},
        {std::string("cut\0here", 8), {{}}, "cut"},
        {"%s", {std::string("cut\0here", 8), {}}, "cut"},
        {repeated("%s", 50), Values(50, "v"), std::string(50, 'v')},
        {"%50$s", Values(50, "v"), "v"},
    };
    FakeHost host;
    for (host.piece_size = 1; host.piece_size <= 10000; host.piece_size *= 100) {
        for (const auto& c : cases)
            EXPECT_EQ(formatted(c.text), give_values(host, c.format, c.values).call(xp_sprintf))
                << c.format;
    }
}

TEST(Sprintf, refuses_formats_that_reach_beyond_the_values) {
    FakeHost host;
    for (const std::string& format :
         Strings{"%s%n", "%d", "%p", "%c", "%f", "%ls", "%S", "%*s", "%.*s", "%*1$s", "%51$s",
                 "%0$s", "%4294967297$s", "%1$s%s", "%s%1$s", "%", "%5", "%5%", repeated("%s", 51)})
        EXPECT_EQ(formatted({}), give_values(host, format, Values(50, "v")).call(xp_sprintf))
            << format;
}

TEST(Sprintf, needs_every_value_up_to_the_first_null_as_a_string) {
    FakeHost host;
    EXPECT_EQ(formatted({}), host.call(xp_sprintf)) << "no format";
    EXPECT_EQ(formatted({}), give_values(host, "%s", {"a"}).call(xp_sprintf)) << "value 2 missing";
    host.asked.clear();
    EXPECT_EQ(formatted("a"), give_values(host, "%s", {"a", {}}).call(xp_sprintf));
    EXPECT_EQ((std::set<uint32>{2, 3, 4}), host.asked);
    host.give(4, std::nullopt, EXTFN_TYPE_INT32);
    EXPECT_EQ(formatted({}), host.call(xp_sprintf)) << "a NULL of another type";
    give_values(host, "%s", {{}}).give(3, "a", EXTFN_TYPE_CHAR).give(4, std::nullopt);
    EXPECT_EQ(formatted({}), host.call(xp_sprintf)) << "a value of another type";
    EXPECT_EQ(formatted({}), give_values(host, "x", {{}}).give(2, std::nullopt).call(xp_sprintf));
    give_values(host, "%s", {long_word, {}});
    host.piece_size = 60;
    host.good_pieces = 0;
    EXPECT_EQ(formatted({}), host.call(xp_sprintf)) << "a piece of a value refused";
}

TEST(Scanf, splits_strings_as_the_c_library_does) {
    const struct {
        std::string input, format;
        Strings values;
    } cases[] = {
        {"12 abc", "%s %s %s", {"12", "abc"}},
        {"key=some value", "%[^=]=%[^\n]", {"key", "some value"}},
        {"a]b", "%[]a]%s", {"a]", "b"}},
        {"abcdef", "%2s%*c%3c", {"ab", "def"}},
        {"50% off", "%[0-9]%% %s", {"50", "off"}},
        {"b a", "%2$s %1$s", {"a", "b"}},
        {"", "%s", {}},
        {"a b", "%s %k%s", {"a"}},
        {"abc", "%[abc", {}},
        {"abc", "%", {}},
        {long_word, "%s%s", {std::string(254, 'w'), std::string(46, 'w')}},
        {long_word, "%255s", {std::string(254, 'w')}},
        {long_word, "%99999999999c", {std::string(254, 'w')}},
        {long_word, "%[w]", {std::string(254, 'w')}},
        {long_word, "%253s", {std::string(253, 'w')}},
        {"% 5 x", "%5% %s%*%%s", {"5"}},
        {"1s x", "%as %s", {"", "x"}},  // %a is a number, not an allocation
        {"65", "%d", {"A"}},            // a number leaves its bytes
        {long_word, repeated("%c", 50), Strings(50, "w")},
    };
    FakeHost host;
    for (host.piece_size = 1; host.piece_size <= 10000; host.piece_size *= 100) {
        for (const auto& c : cases)
            EXPECT_EQ(scanned(c.values), scan(host, c.input, c.format)) << c.format;
    }
}

TEST(Scanf, refuses_formats_that_reach_beyond_the_buffers) {
    FakeHost host;
    for (const std::string& format :
         Strings{"%s%ms", "%m[a]", "%mc", "%ls", "%l[a]", "%S", "%C", "%Ls", "%lls", "%51$s",
                 "%0$s", "%4294967297$s", repeated("%c", 51)})
        EXPECT_EQ(scanned({}), scan(host, std::string(120, 'a'), format)) << format;
}

TEST(Scanf, stops_at_the_first_parameter_that_the_host_does_not_have) {
    for (uint32 parameters = 0; parameters <= 3; ++parameters) {
        FakeHost host;
        host.highest_out = 2 + parameters;
        EXPECT_EQ(scanned({"a", "b"}, parameters), scan(host, "a b", "%s %s"));
        EXPECT_EQ(scanned({}, parameters), scan(host, "a b", "no match"));
    }
}

TEST(Scanf, sets_nothing_without_input_and_format) {
    FakeHost host;
    EXPECT_TRUE(host.give(1, "a").call(xp_scanf).empty());
    EXPECT_TRUE(host.give(2, std::nullopt).call(xp_scanf).empty());
    EXPECT_TRUE(host.give(1, std::nullopt).give(2, "%s").call(xp_scanf).empty());
    host.give(1, long_word).piece_size = 60;
    host.good_pieces = 0;
    EXPECT_TRUE(host.call(xp_scanf).empty());
}
