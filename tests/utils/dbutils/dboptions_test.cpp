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
        EXPECT_EQ(nullptr, list);
        return {std::string("error: ") + bad_key};
    }
    EXPECT_STREQ("untouched", bad_key);
    std::vector<std::string> options;
    for (const a_db_option* option = list; option != nullptr; option = option->next) {
        options.push_back(std::string(option->key) + "=" + option->value);
    }
    db_free_options(list);
    return options;
}

}  // namespace

TEST(Options, texts_parse_into_keys_and_values_or_name_the_offending_key) {
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {" a = one two ;\n b\t=\t2 ", {"a=one two", "b=2"}},
        {"a='x;y = z'; b=\" p's \" ;c=3", {"a=x;y = z", "b= p's ", "c=3"}},
        {"a='it''s';b=\"say \"\"hi\"\"\";c=''''", {"a=it's", "b=say \"hi\"", "c='"}},
        {"a=1;bad;c=3", {"error: bad"}},
        {"a=1;=2", {"error: "}},
        {"a='open''", {"error: a"}},
        {"sixteen_letters_", {"error: sixteen_letters"}},
    };
    for (const auto& [text, options] : rows) EXPECT_EQ(options, parsed(text));
}

TEST(Options, a_list_and_its_text_turn_into_each_other) {
    const a_db_option last{nullptr, "k", "a;'b'"}, option{const_cast<a_db_option*>(&last), "e", ""};
    char text[16] = "", cut[] = "#####";
    EXPECT_EQ(11U, db_format_options(&last, cut, 4));
    EXPECT_STREQ("k='", cut);
    EXPECT_EQ(14U, db_format_options(&option, text, sizeof text));
    EXPECT_EQ((std::vector<std::string>{"e=", "k=a;'b'"}), parsed(text));
}
