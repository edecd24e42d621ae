#include "host/sqlite/shell/display.h"

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "host/sqlite/shell/rowprinter.h"

using namespace std::literals;
using host::Field;
using host::Mode;
using host::OutputStyle;
using host::RowPrinter;

namespace {

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

// What is printed in this style.
template <typename Fill>
std::string printed(const OutputStyle& style, const std::vector<std::string>& columns, Fill fill,
                    std::function<void()> before_print = nullptr) {
    char* bytes = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&bytes, &size);
    const auto rows = host::make_row_printer(style, out, columns, std::move(before_print));
    fill(*rows);
    rows->finish();
    fclose(out);
    std::string all(bytes, size);
    free(bytes);
    return all;
}

void add(RowPrinter& rows, const std::vector<Field>& row) {
    rows.add(row);
}

}  // namespace

TEST(Display, text_cannot_command_the_terminal_or_leave_its_line) {
    EXPECT_EQ(host::display_text("plain äöü 漢字 😀 \\"), "plain äöü 漢字 😀 \\");
    EXPECT_EQ(host::display_text("a\nb\tc\rd\x1b[31m\x7f\0e"sv),
              "a\\nb\\tc\\rd\\x1b[31m\\x7f\\x00e");
    EXPECT_EQ(host::display_text("a\nb\tc\r", "\n\t"), "a\nb\tc\\r");
    // A control character of two bytes; what turns the line round, has no width, is a tag.
    EXPECT_EQ(host::display_text("\u009b|\u202e|\u2066|\u200b|\ufeff|\u00ad|\U000e0041"),
              "\\u009b|\\u202e|\\u2066|\\u200b|\\ufeff|\\u00ad|\\U000e0041");
    // Not UTF-8: a stray byte, a cut character, an overlong one, a surrogate, one past the end.
    EXPECT_EQ(host::display_text("\xff|\xe6\xbc|\xc0\x80|\xed\xa0\x80|\xf4\x90\x80\x80"),
              "\\xff|\\xe6\\xbc|\\xc0\\x80|\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80");
}

TEST(Display, a_long_value_is_cut_between_characters_and_its_length_told_if_asked_for) {
    const std::string longest(host::longest_text, '\n');
    EXPECT_EQ(host::display_value(text(longest), true).size(), 2 * host::longest_text);
    const std::string longer = std::string(host::longest_text - 1, 'x') + "漢字";
    EXPECT_EQ(host::display_value(text(longer), true),
              std::string(host::longest_text - 1, 'x') + "… (65541 bytes)");
    EXPECT_EQ(host::display_value(text(longer), false), longer);

    EXPECT_EQ(host::display_value(blob("0123456789abcdef"), true),
              "x'30313233343536373839616263646566'");
    const Field beginning{Field::Kind::Blob, "0123456789abcdef", 17};
    EXPECT_EQ(host::display_value(beginning, true),
              "x'30313233343536373839616263646566…' (17 bytes)");
    EXPECT_EQ(host::display_value(blob("\x00\xff"sv), false), "x'00ff'");
}

TEST(Display, every_kind_of_value_has_its_form_in_every_mode) {
    struct Case {
        Field field;
        std::string_view shown;
        std::string_view csv;
        std::string_view json;
    };
    const double infinity = HUGE_VAL;
    const Case cases[] = {
        {{}, "NULL", "", "null"},
        {text("NULL"), "\\x4eULL", "NULL", R"("NULL")"},
        {text(""), "", "\"\"", R"("")"},
        {text("a\nb"), "a\\nb", "\"a\nb\"", R"("a\nb")"},
        {text("a\\nb"), "a\\\\nb", "a\\nb", R"("a\\nb")"},
        {text("a,\"b\"\r"), "a,\"b\"\\r", "\"a,\"\"b\"\"\r\"", R"("a,\"b\"\r")"},
        {text("\u202e\x7f\U000e0041"), "\\u202e\\x7f\\U000e0041", "\u202e\x7f\U000e0041",
         R"("\u202e\u007f\udb40\udc41")"},
        {text("\xff\0"sv), "\\xff\\x00", "\xff\0"sv, R"("x'ff00'")"},
        {blob("\xff\0"sv), "x'ff00'", "x'ff00'", R"("x'ff00'")"},
        {number("-9223372036854775808"), "-9223372036854775808", "-9223372036854775808",
         "-9223372036854775808"},
        {real(0.1 + 0.2), "of SQLite's making", "of SQLite's making", "0.30000000000000004"},
        {real(3), "of SQLite's making", "of SQLite's making", "3.0"},
        {real(-infinity), "of SQLite's making", "of SQLite's making", "-9e999"},
    };
    for (const Case& c : cases) {
        const auto fill = [&c](RowPrinter& rows) { add(rows, {c.field, c.field}); };
        const auto shown_as = [&fill](Mode mode) {
            return printed({mode, false}, {"a", "b\""}, fill);
        };
        const std::string shown(c.shown);
        const std::string csv(c.csv);
        const std::string json(c.json);
        EXPECT_EQ(shown_as(Mode::Table), " " + shown + " | " + shown + "\n");
        EXPECT_EQ(shown_as(Mode::Line), " a = " + shown + "\nb\" = " + shown + "\n");
        EXPECT_EQ(shown_as(Mode::Csv), csv + "," + csv + "\r\n");
        EXPECT_EQ(shown_as(Mode::Json), "[{\"a\":" + json + ",\"b\\\"\":" + json + "}]\n");
    }
    const auto two = [](RowPrinter& rows) {
        add(rows, {number("1")});
        add(rows, {text("\u009b")});
    };
    const auto none = [](RowPrinter&) {};
    EXPECT_EQ(printed({Mode::Csv}, {"a,"}, two), "\"a,\"\r\n1\r\n\u009b\r\n");
    EXPECT_EQ(printed({Mode::Csv, true, true}, {"a"}, two), "a\r\n1\r\n\\u009b\r\n");
    EXPECT_EQ(printed({Mode::Csv}, {"a"}, none), "a\r\n");
    EXPECT_EQ(printed({Mode::Json}, {"a"}, two), "[{\"a\":1},\n{\"a\":\"\\u009b\"}]\n");
    EXPECT_EQ(printed({Mode::Json}, {"a"}, none), "[]\n");
    EXPECT_EQ(printed({Mode::Line}, {"a"}, two), "a = 1\n\na = \\u009b\n");
}

TEST(Display, sizes_have_the_unit_that_suits_them) {
    EXPECT_EQ(host::display_size(1), "1 byte");
    EXPECT_EQ(host::display_size(1023), "1023 bytes");
    EXPECT_EQ(host::display_size(1024), "1.0 KiB");
    EXPECT_EQ(host::display_size(5'000'000'000), "4.7 GiB");
}

TEST(Table, aligns_its_columns_by_what_a_terminal_shows) {
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    const std::string table = printed({}, {"name", "n"}, [](RowPrinter& rows) {
        add(rows, {text("漢字"), number("1")});
        add(rows, {text("é"), number("1234")});
    });
    EXPECT_EQ(table, " name | n\n"
                     "------+------\n"
                     " 漢字 |    1\n"
                     " é    | 1234\n"
                     "(2 rows)\n\n");
    EXPECT_EQ(printed({}, {"a"}, [](RowPrinter&) {}), " a\n---\n(0 rows)\n\n");
    EXPECT_EQ(host::display_cut("漢字漢字", 8), "漢字漢字");
    EXPECT_EQ(host::display_cut("漢字漢字x", 8), "漢字漢…");
    EXPECT_EQ(host::display_cut("漢字漢字x", 7), "漢字漢…");
}

TEST(Table, prints_rows_before_the_last_one_is_known) {
    for (const auto& [count, size] : {std::pair<int, std::size_t>{1000, 1}, {1, 1 << 20}}) {
        bool printing = false;
        const std::string value(size, 'x');
        const auto fill = [&](RowPrinter& rows) {
            for (int i = 1; i < count; ++i) add(rows, {text(value)});
            EXPECT_FALSE(printing);
            add(rows, {text(value)});
            EXPECT_TRUE(printing);
        };
        printed({}, {"a"}, fill, [&printing] { printing = true; });
    }
}
