#include "host/sqlite/display.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>

#include "host/sqlite/table.h"

using namespace std::literals;

namespace {

// What a table prints.
template <typename Fill>
std::string printed(const std::vector<std::string>& columns, Fill fill) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    host::Table table(out, columns);
    fill(table);
    table.finish();
    fclose(out);
    std::string all(text, size);
    free(text);
    return all;
}

}  // namespace

TEST(Display, text_cannot_command_the_terminal_or_leave_its_line) {
    EXPECT_EQ(host::display_text("plain äöü 漢字 😀"), "plain äöü 漢字 😀");
    EXPECT_EQ(host::display_text("a\nb\tc\rd\x1b[31m\x7f\0e"sv),
              "a\\nb\\tc\\rd\\x1b[31m\\x7f\\x00e");
    EXPECT_EQ(host::display_text("\xc2\x9b"), "\\xc2\\x9b") << "a control character of two bytes";
    // Not UTF-8: a stray byte, a cut character, an overlong one, a surrogate, one past the end.
    EXPECT_EQ(host::display_text("\xff|\xe6\xbc|\xc0\x80|\xed\xa0\x80|\xf4\x90\x80\x80"),
              "\\xff|\\xe6\\xbc|\\xc0\\x80|\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80");
}

TEST(Display, a_long_text_is_cut_between_characters_and_its_length_told) {
    const std::string longest(host::longest_text, '\n');
    EXPECT_EQ(host::display_text(longest).size(), 2 * host::longest_text);
    EXPECT_EQ(host::display_text(std::string(host::longest_text - 1, 'x') + "漢字"),
              std::string(host::longest_text - 1, 'x') + "… (65541 bytes)");
}

TEST(Display, a_long_blob_is_cut_and_its_length_told) {
    EXPECT_EQ(host::display_blob("", 0), "x''");
    EXPECT_EQ(host::display_blob("\x00\xff"sv, 2), "x'00ff'");
    EXPECT_EQ(host::display_blob("0123456789abcdef", 16), "x'30313233343536373839616263646566'");
    EXPECT_EQ(host::display_blob("0123456789abcdef", 17),
              "x'30313233343536373839616263646566…' (17 bytes)");
}

TEST(Display, sizes_have_the_unit_that_suits_them) {
    EXPECT_EQ(host::display_size(1), "1 byte");
    EXPECT_EQ(host::display_size(1023), "1023 bytes");
    EXPECT_EQ(host::display_size(1024), "1.0 KiB");
    EXPECT_EQ(host::display_size(5'000'000'000), "4.7 GiB");
}

TEST(Table, aligns_its_columns_by_what_a_terminal_shows) {
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    const std::string table = printed({"name", "n"}, [](host::Table& t) {
        t.add({{"漢字"}, {"1", true}});
        t.add({{"é"}, {"1234", true}});
    });
    EXPECT_EQ(table, " name | n\n"
                     "------+------\n"
                     " 漢字 |    1\n"
                     " é    | 1234\n"
                     "(2 rows)\n\n");
    EXPECT_EQ(printed({"a"}, [](host::Table&) {}), " a\n---\n(0 rows)\n\n");
    EXPECT_EQ(host::display_cut("漢字漢字", 8), "漢字漢字");
    EXPECT_EQ(host::display_cut("漢字漢字x", 8), "漢字漢…");
    EXPECT_EQ(host::display_cut("漢字漢字x", 7), "漢字漢…");
}

TEST(Table, prints_rows_before_the_last_one_is_known) {
    bool printing = false;
    printed({"a"}, [&printing](host::Table& t) {
        t.before_print = [&printing] { printing = true; };
        for (int i = 0; i < 999; ++i) t.add({{"x"}});
        EXPECT_FALSE(printing);
        t.add({{"x"}});
        EXPECT_TRUE(printing);
    });
    printed({"a"}, [&printing](host::Table& t) {
        printing = false;
        t.before_print = [&printing] { printing = true; };
        t.add({{std::string(std::size_t{1} << 20, 'x')}});
        EXPECT_TRUE(printing);
    });
}
