#include "host/sqlite/shell/display.h"

#include <clocale>
#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

#include "host/displaytext.h"
#include "host/sqlite/shell/rowprinter.h"

using namespace host;
using namespace std::literals;

namespace {

using Row = std::vector<Field>;

Field text(std::string_view bytes) {
    return Field::of(Field::Kind::Text, bytes);
}
Field blob(std::string_view bytes) {
    return Field::of(Field::Kind::Blob, bytes);
}
Field number(std::string_view digits) {
    return Field::of(Field::Kind::Integer, digits);
}
Field real(double value) {
    return {Field::Kind::Real, "of SQLite's making", 0, value};
}

// What is printed of the rows in this style.
std::string printed(const OutputStyle& style, const std::vector<std::string>& columns,
                    const std::vector<Row>& rows) {
    char* bytes = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&bytes, &size);
    const auto printer = make_row_printer(style, out, columns);
    for (const Row& row : rows) printer->add(row);
    printer->finish();
    fclose(out);
    std::string all(bytes, size);
    free(bytes);
    return all;
}

}  // namespace

TEST(Display, text_cannot_command_the_terminal_or_leave_its_line) {
    EXPECT_EQ("plain äöü 漢字 😀 \\", display_text("plain äöü 漢字 😀 \\"));
    EXPECT_EQ("a\\nb\\tc\\rd\\x1b[31m\\x7f\\x00e", display_text("a\nb\tc\rd\x1b[31m\x7f\0e"sv));
    EXPECT_EQ("a\nb\tc\\r", display_text("a\nb\tc\r", "\n\t"));
    // A control character of two bytes; what turns the line round, has no width, is a tag.
    EXPECT_EQ("\\u009b|\\u202e|\\u2066|\\u200b|\\ufeff|\\u00ad|\\U000e0041",
              display_text("\u009b|\u202e|\u2066|\u200b|\ufeff|\u00ad|\U000e0041"));
    // Not UTF-8: a stray byte, a cut character, an overlong one, a surrogate, one past the end.
    EXPECT_EQ("\\xff|\\xe6\\xbc|\\xc0\\x80|\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80",
              display_text("\xff|\xe6\xbc|\xc0\x80|\xed\xa0\x80|\xf4\x90\x80\x80"));
}

TEST(Display, a_long_value_is_cut_between_characters_and_its_length_told_if_asked_for) {
    const std::string longest(longest_text, '\n');
    EXPECT_EQ(2 * longest_text, display_value(text(longest), true).size());
    const std::string beginning(longest_text - 1, 'x');
    EXPECT_EQ(beginning + "… (65541 bytes)", display_value(text(beginning + "漢字"), true));
    EXPECT_EQ(beginning + "漢字", display_value(text(beginning + "漢字"), false));
    EXPECT_EQ("x'30313233343536373839616263646566'", display_value(blob("0123456789abcdef"), true));
    EXPECT_EQ("x'30313233343536373839616263646566…' (17 bytes)",
              display_value({Field::Kind::Blob, "0123456789abcdef", 17}, true));
}

TEST(Display, every_kind_of_value_has_its_form_in_every_mode) {
    struct Case {
        Field field;
        std::string shown;
        std::string csv;
        std::string json;
    };
    const Case cases[] = {
        {{}, "NULL", "", "null"},
        {text("NULL"), "\\x4eULL", "NULL", R"("NULL")"},
        {text(""), "", "\"\"", R"("")"},
        {text("a\nb"), "a\\nb", "\"a\nb\"", R"("a\nb")"},
        {text("a\\nb"), "a\\\\nb", "a\\nb", R"("a\\nb")"},
        {text("a,\"b\"\r"), "a,\"b\"\\r", "\"a,\"\"b\"\"\r\"", R"("a,\"b\"\r")"},
        {text("\u202e\x7f\U000e0041"), "\\u202e\\x7f\\U000e0041", "\u202e\x7f\U000e0041",
         R"("\u202e\u007f\udb40\udc41")"},
        {text("\xff\0"sv), "\\xff\\x00", "\xff\0"s, R"("x'ff00'")"},
        {blob("\xff\0"sv), "x'ff00'", "x'ff00'", R"("x'ff00'")"},
        {number("-9223372036854775808"), "-9223372036854775808", "-9223372036854775808",
         "-9223372036854775808"},
        {real(0.1 + 0.2), "of SQLite's making", "of SQLite's making", "0.30000000000000004"},
        {real(3), "of SQLite's making", "of SQLite's making", "3.0"},
        {real(-HUGE_VAL), "of SQLite's making", "of SQLite's making", "-9e999"},
    };
    for (const auto& [field, shown, csv, json] : cases) {
        const auto in = [row = Row{field, field}](Mode mode) {
            return printed({mode, false}, {"a", "b\""}, {row});
        };
        EXPECT_EQ(" " + shown + " | " + shown + "\n", in(Mode::Table));
        EXPECT_EQ(" a = " + shown + "\nb\" = " + shown + "\n", in(Mode::Line));
        EXPECT_EQ(csv + "," + csv + "\r\n", in(Mode::Csv));
        EXPECT_EQ("[{\"a\":" + json + ",\"b\\\"\":" + json + "}]\n", in(Mode::Json));
    }
}

TEST(Display, rows_follow_each_other_as_the_mode_has_it) {
    const std::vector<Row> two = {{number("1")}, {text("\u009b")}};
    EXPECT_EQ("\"a,\"\r\n1\r\n\u009b\r\n", printed({Mode::Csv}, {"a,"}, two));
    EXPECT_EQ("a\r\n1\r\n\\u009b\r\n", printed({Mode::Csv, true, true}, {"a"}, two));
    EXPECT_EQ("[{\"a\":1},\n{\"a\":\"\\u009b\"}]\n", printed({Mode::Json}, {"a"}, two));
    EXPECT_EQ("[]\n", printed({Mode::Json}, {"a"}, {}));
    EXPECT_EQ("a = 1\n\na = \\u009b\n", printed({Mode::Line}, {"a"}, two));
    EXPECT_EQ(" a\n---\n(0 rows)\n\n", printed({Mode::Table}, {"a"}, {}));
}

TEST(Display, a_table_is_aligned_by_what_a_terminal_shows) {
    ASSERT_NE(nullptr, setlocale(LC_CTYPE, "C.UTF-8"));
    EXPECT_EQ(
        " name | n\n"
        "------+------\n"
        " 漢字 |    1\n"
        " é    | 1234\n"
        "(2 rows)\n\n",
        printed({}, {"name", "n"}, {{text("漢字"), number("1")}, {text("é"), number("1234")}}));
    EXPECT_EQ("漢字漢字", display_cut("漢字漢字", 8));
    EXPECT_EQ("漢字漢…", display_cut("漢字漢字x", 8));
    EXPECT_EQ("漢字漢…", display_cut("漢字漢字x", 7));
}

TEST(Display, a_table_prints_rows_before_the_last_one_is_known) {
    for (const auto& [count, size] : {std::pair<int, std::size_t>{1000, 1}, {1, 1 << 20}}) {
        bool printing = false;
        FILE* out = fopen("/dev/null", "w");
        const auto printer = make_row_printer({}, out, {"a"}, [&printing] { printing = true; });
        const std::string value(size, 'x');
        for (int i = 1; i <= count; ++i) {
            EXPECT_FALSE(printing);
            printer->add(Row{text(value)});
        }
        EXPECT_TRUE(printing);
        fclose(out);
    }
}
