#include "utils/dbutils/dboptions.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace {

/// "key=value" per option, or "error: " and the offending key.
std::vector<std::string> parsed(const char* text) {
    a_db_option* list = nullptr;
    char bad_key[16] = "untouched";
    if (!db_parse_options(text, &list, bad_key, sizeof bad_key)) {
        EXPECT_EQ(list, nullptr);
        return {std::string("error: ") + bad_key};
    }
    EXPECT_STREQ(bad_key, "untouched");
    std::vector<std::string> options;
    for (const a_db_option* option = list; option != nullptr; option = option->next) {
        options.push_back(std::string(option->key) + "=" + option->value);
    }
    db_free_options(list);
    return options;
}

std::string formatted(const a_db_option* list) {
    std::string text(db_format_options(list, nullptr, 0) + 1, '#');
    EXPECT_EQ(db_format_options(list, text.data(), text.size()), text.size() - 1);
    text.pop_back();
    return text;
}

}  // namespace

TEST(Options, texts_parse_into_keys_and_values_or_name_the_offending_key) {
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {nullptr, {}},
        {" ; ;", {}},
        {"a=1;b=2;", {"a=1", "b=2"}},
        {" a = one two ;\n b\t=\t2 ", {"a=one two", "b=2"}},
        {"a=;b=''", {"a=", "b="}},
        {"a='x;y = z'; b=\" p's \" ;c=3", {"a=x;y = z", "b= p's ", "c=3"}},
        {"a='it''s';b=\"say \"\"hi\"\"\";c=''''", {"a=it's", "b=say \"hi\"", "c='"}},
        {"a=b=c;d=O'Brien", {"a=b=c", "d=O'Brien"}},
        {"a=1;A=2;a=1", {"a=1", "A=2", "a=1"}},
        {"a=1;bad;c=3", {"error: bad"}},
        {"a=1; bad ", {"error: bad"}},
        {"a=1;=2", {"error: "}},
        {"a='open''", {"error: a"}},
        {"a='x' 'y'", {"error: a"}},
        {"a=1;b='x'y;c=2", {"error: b"}},
        {"a=\"x'", {"error: a"}},
        {"sixteen_letters_", {"error: sixteen_letters"}},
    };
    for (const auto& [text, options] : rows) EXPECT_EQ(parsed(text), options);
    a_db_option* list = nullptr;
    EXPECT_FALSE(db_parse_options("bad", &list, nullptr, 0));
}

TEST(Options, a_list_and_its_text_turn_into_each_other) {
    a_db_option* rest = nullptr;
    std::vector<a_db_option> options(12);
    std::vector<std::string> expected(12);
    const char* values[] = {"",  "two words", " edge", "edge ", "a;b", "it's",
                            "'", "''",        "\"x\"", "a=b",   "\n",  "x';y='z"};
    for (size_t i = 12; i-- > 0; rest = &options[i]) {
        options[i] = {rest, "key", values[i]};
        expected[i] = std::string("key=") + values[i];
    }
    EXPECT_EQ(parsed(formatted(rest).c_str()), expected);
    EXPECT_EQ(formatted(nullptr), "");
    const a_db_option quoted{nullptr, "k", "a;'b'"};
    EXPECT_EQ(formatted(&quoted), "k='a;''b'''");
    char cut[] = "#####";
    EXPECT_EQ(db_format_options(&quoted, cut, 4), 11U);
    EXPECT_STREQ(cut, "k='");
}

TEST(Options, the_first_of_a_name_is_found_in_any_case) {
    a_db_option* list = nullptr;
    ASSERT_TRUE(db_parse_options("other=0;FIPS=yes;fips=no", &list, nullptr, 0));
    EXPECT_STREQ(db_find_option(list, "Fips")->value, "yes");
    EXPECT_EQ(db_find_option(list, "fip"), nullptr);
    EXPECT_EQ(db_find_option(nullptr, "fips"), nullptr);
    db_free_options(list);
}
