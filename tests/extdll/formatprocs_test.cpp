#include "extdll/procedures.h"
#include "tests/extdll/fakehost.h"

namespace {

using Values = std::vector<std::optional<std::string>>;
using Strings = std::vector<std::string>;

FakeHost& give_values(FakeHost& host, const std::string& format, const Values& values) {
    host.arguments.clear();
    host.give(2, format);
    for (uint32 i = 0; i < values.size(); ++i) host.give(3 + i, values[i]);
    return host;
}

std::vector<SetCall> formatted(std::optional<std::string> text) {
    return {{1, EXTFN_TYPE_STRING, std::move(text)}, {0, EXTFN_TYPE_INT32, std::nullopt}};
}

// `values` followed by NULL up to 50.
std::vector<SetCall> scanned(const Strings& values, uint32 parameters = 50) {
    std::vector<SetCall> calls;
    for (uint32 i = 0; i < parameters; ++i) {
        calls.push_back({3 + i, EXTFN_TYPE_STRING, std::nullopt});
        if (i < values.size()) calls.back().bytes = values[i];
    }
    return calls;
}

std::vector<SetCall> scan(FakeHost& host, const std::string& input, const std::string& format) {
    return host.give(1, input).give(2, format).call(xp_scanf);
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

}  // namespace

TEST(Sprintf, formats_strings_as_the_c_library_does) {
    struct Case {
        std::string format;
        Values values;
        std::string text;
    };
    const std::string long_text(300, 'x');
    const Case cases[] = {
        {"%s-%s", {"a", "b", {}}, "a-b"},
        {"100%% %s", {"sure", {}}, "100% sure"},
        {"[%5s|%-5s|%.2s|%-4.1s|%05s|%+ #'Is]",
         {"a", "b", "cde", "f", "g", "h", {}},
         "[    a|b    |cd|f   |    g|h]"},
        {"%2$s %1$s %2$4s", {"a", "b", {}}, "b a    b"},
        {"%s %s", {"only", {}}, "only (null)"},
        {"%s|%.3s|%s", {{}, "never read", "nor this"}, "(null)||"},
        {"%s", {long_text, {}}, std::string(254, 'x')},
        {"%300s", {"x", {}}, std::string(254, ' ')},
        {"%-300s", {"x", {}}, "x" + std::string(253, ' ')},
        {"%260s", {std::string(259, 'y'), {}}, " " + std::string(253, 'y')},
        {"%.99999999999s", {"x", {}}, "x"},
        {std::string(300, 'f'), {{}}, std::string(254, 'f')},
        {"", {{}}, ""},
        {std::string("cut\0here", 8), {{}}, "cut"},
        {"%s", {std::string("cut\0here", 8), {}}, "cut"},
    };
    for (const uint32 piece : {1U, 100U, 32768U}) {
        for (const Case& c : cases) {
            FakeHost host;
            host.piece_size = piece;
            EXPECT_EQ(give_values(host, c.format, c.values).call(xp_sprintf), formatted(c.text))
                << c.format;
        }
    }
}

TEST(Sprintf, refuses_formats_that_reach_beyond_the_values) {
    const Values fifty(50, "v");
    for (const std::string format :
         {"%n",     "%s%n",   "%d",  "%x",   "%p",    "%c",    "%f",   "%ls",
          "%S",     "%hs",    "%*s", "%.*s", "%*1$s", "%51$s", "%0$s", "%4294967297$s",
          "%1$s%s", "%s%1$s", "%",   "%5",   "%5%",   "%1$%",  "%s%"}) {
        FakeHost host;
        EXPECT_EQ(give_values(host, format, fifty).call(xp_sprintf), formatted({})) << format;
    }
    FakeHost host;
    EXPECT_EQ(give_values(host, repeated("%s", 50), fifty).call(xp_sprintf),
              formatted(std::string(50, 'v')));
    EXPECT_EQ(give_values(host, repeated("%s", 51), fifty).call(xp_sprintf), formatted({}));
    EXPECT_EQ(give_values(host, "%50$s", fifty).call(xp_sprintf), formatted("v"));
}

TEST(Sprintf, needs_every_value_up_to_the_first_null_as_a_string) {
    FakeHost host;
    EXPECT_EQ(give_values(host, "%s", {"a"}).call(xp_sprintf), formatted({})) << "value 2 missing";
    EXPECT_EQ(give_values(host, "%s", {"a", {}}).call(xp_sprintf), formatted("a"));
    EXPECT_EQ(host.asked, (std::set<uint32>{2, 3, 4}));
    host.give(4, std::nullopt, EXTFN_TYPE_INT32);
    EXPECT_EQ(host.call(xp_sprintf), formatted({})) << "a NULL of another type";
    host.give(3, "a", EXTFN_TYPE_CHAR);
    EXPECT_EQ(host.call(xp_sprintf), formatted({})) << "a value of another type";
    EXPECT_EQ(give_values(host, "x", {{}}).give(2, std::nullopt).call(xp_sprintf), formatted({}));
    host.arguments.clear();
    EXPECT_EQ(host.call(xp_sprintf), formatted({})) << "no format";

    give_values(host, "%s", {std::string(100, 'a'), {}});
    host.piece_size = 60;
    host.good_pieces = 0;
    EXPECT_EQ(host.call(xp_sprintf), formatted({})) << "a piece of a value refused";
}

TEST(Scanf, splits_strings_as_the_c_library_does) {
    struct Case {
        std::string input, format;
        Strings values;
    };
    const std::string long_word(300, 'w');
    const Case cases[] = {
        {"12 abc", "%s %s", {"12", "abc"}},
        {"12 abc", "%s %s %s", {"12", "abc"}},
        {"key=some value", "%[^=]=%[^\n]", {"key", "some value"}},
        {"a]b", "%[]a]%s", {"a]", "b"}},
        {"abcdef", "%2s%*c%3c", {"ab", "def"}},
        {"50% off", "%[0-9]%% %s", {"50", "off"}},
        {"b a", "%2$s %1$s", {"a", "b"}},
        {"b", "%2$s", {""}},
        {"x", "y", {}},
        {"", "%s", {}},
        {"a b", "%s %k%s", {"a"}},
        {"abc", "%[abc", {}},
        {"abc", "%", {}},
        {long_word, "%s%s", {std::string(254, 'w'), std::string(46, 'w')}},
        {long_word, "%255s", {std::string(254, 'w')}},
        {long_word, "%0s", {std::string(254, 'w')}},
        {long_word, "%99999999999c", {std::string(254, 'w')}},
        {long_word, "%[w]", {std::string(254, 'w')}},
        {long_word, "%253s", {std::string(253, 'w')}},
        {long_word + " x", "%*s %s", {"x"}},
        {"ab", "%hs", {"ab"}},
        {"ab", "%hhs", {"ab"}},
        {"ab", "%hhhs", {}},
        {"% 5 x", "%5% %s%*%%s", {"5"}},
        {"1s x", "%as %s", {"", "x"}},  // %a is a number, not an allocation
        {"65", "%d", {"A"}},            // a number leaves its bytes
    };
    for (const uint32 piece : {1U, 100U, 32768U}) {
        for (const Case& c : cases) {
            FakeHost host;
            host.piece_size = piece;
            EXPECT_EQ(scan(host, c.input, c.format), scanned(c.values)) << c.format;
        }
    }
}

TEST(Scanf, refuses_formats_that_reach_beyond_the_buffers) {
    for (const std::string format : {"%ms", "%m[a]", "%mc", "%ls", "%lc", "%l[a]", "%S", "%C",
                                     "%Ls", "%lls", "%51$s", "%0$s", "%s%ms", "%4294967297$s"}) {
        FakeHost host;
        EXPECT_EQ(scan(host, "aaa aaa", format), scanned({})) << format;
    }
    FakeHost host;
    EXPECT_EQ(scan(host, std::string(60, 'c'), repeated("%c", 50)), scanned(Strings(50, "c")));
    EXPECT_EQ(scan(host, std::string(60, 'c'), repeated("%c", 51)), scanned({}));
    EXPECT_EQ(scan(host, std::string(60, 'c'), repeated("%*c", 51) + "%s"),
              scanned({std::string(9, 'c')}));
}

TEST(Scanf, stops_at_the_first_parameter_that_the_host_does_not_have) {
    for (uint32 parameters = 0; parameters <= 3; ++parameters) {
        FakeHost host;
        host.highest_out = 2 + parameters;
        EXPECT_EQ(scan(host, "a b", "%s %s"), scanned({"a", "b"}, parameters));
        EXPECT_EQ(scan(host, "a b", "no match"), scanned({}, parameters));
    }
}

TEST(Scanf, sets_nothing_without_input_and_format) {
    FakeHost host;
    EXPECT_TRUE(host.give(1, "a").call(xp_scanf).empty());
    EXPECT_TRUE(host.give(2, std::nullopt).call(xp_scanf).empty());
    EXPECT_TRUE(host.give(1, std::nullopt).give(2, "%s").call(xp_scanf).empty());
    host.give(1, std::string(100, 'a'));
    host.piece_size = 60;
    host.good_pieces = 0;
    EXPECT_TRUE(host.call(xp_scanf).empty());
}
