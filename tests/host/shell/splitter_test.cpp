#include "host/sqlite/shell/splitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using host::Statement;
using host::StatementSplitter;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Each statement as "line:text".
std::vector<std::string> statements_of(StatementSplitter& splitter, bool at_end) {
    std::vector<std::string> found;
    const auto add = [&found](const Statement& statement) {
        found.push_back(std::to_string(statement.line) + ":" + statement.text);
    };
    while (const auto statement = splitter.next()) add(*statement);
    if (!at_end) return found;
    if (const auto statement = splitter.rest()) add(*statement);
    return found;
}

std::vector<std::string> split(std::string_view text) {
    StatementSplitter splitter;
    splitter.add(text);
    return statements_of(splitter, true);
}

std::vector<std::string> split_line_by_line(std::string_view text) {
    StatementSplitter splitter;
    std::vector<std::string> found;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end == text.npos ? end : end + 1);
        text.remove_prefix(line.size());
        splitter.add(line);
        for (std::string& statement : statements_of(splitter, text.empty()))
            found.push_back(std::move(statement));
    }
    return found;
}

struct Case {
    std::string_view text;
    std::vector<std::string> statements;
};

}  // namespace

TEST(StatementSplitter, cuts_at_the_semicolons_that_end_a_statement) {
    const Case cases[] = {
        {"SELECT 1;SELECT 2", {"1:SELECT 1;", "1:SELECT 2"}},
        {"\n\n  SELECT 1\n;\n\nSELECT\n2;\n", {"3:SELECT 1\n;", "6:SELECT\n2;"}},
        {"SELECT ';', 'it''s;', \";\", `;`, [;];x;",
         {"1:SELECT ';', 'it''s;', \";\", `;`, [;];", "1:x;"}},
        {"-- a;\nSELECT 1 -- b;'\n, /* ;\n' */ 2;", {"2:SELECT 1 -- b;'\n, /* ;\n' */ 2;"}},
        {"/* one;\n two */ /**/ SELECT 1;", {"2:SELECT 1;"}},
        {"SELECT 4/2-1;", {"1:SELECT 4/2-1;"}},
        {"CREATE TRIGGER t AFTER INSERT ON a BEGIN\n DELETE FROM b; SELECT 1; END;SELECT 2;",
         {"1:CREATE TRIGGER t AFTER INSERT ON a BEGIN\n DELETE FROM b; SELECT 1; END;",
          "2:SELECT 2;"}},
        {".help it's; odd\nSELECT 1;", {"1:.help it's; odd", "2:SELECT 1;"}},
        {"CALL a('x;'); .quit", {"1:CALL a('x;');", "1:.quit"}},
        {"help\nQuit ;\n\\q; SELECT 1\nexit", {"1:help", "2:Quit ;", "3:\\q; SELECT 1", "4:exit"}},
        {"SELECT\nquit\nFROM exit; help;", {"1:SELECT\nquit\nFROM exit;", "3:help;"}},
        {"SELECT 'open;\n", {"1:SELECT 'open;\n"}},
        {"-- nothing\n  /* at all */ ", {}},
        {";;", {"1:;", "1:;"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(split(c.text), c.statements) << c.text;
        EXPECT_EQ(split_line_by_line(c.text), c.statements) << c.text;
    }
}

TEST(StatementSplitter, tells_whether_a_statement_has_begun) {
    StatementSplitter splitter;
    const auto pending_after = [&splitter](std::string_view line) {
        splitter.add(line);
        statements_of(splitter, false);
        return splitter.pending();
    };
    EXPECT_FALSE(pending_after("SELECT 1; -- done\n"));
    EXPECT_TRUE(pending_after("/* a comment\n"));
    EXPECT_FALSE(pending_after("has ended */\n"));
    EXPECT_TRUE(pending_after("SELECT 'it''s;\n"));
    splitter.clear();
    EXPECT_FALSE(splitter.pending());
    splitter.add("';\n");
    EXPECT_THAT(statements_of(splitter, false), IsEmpty());
    splitter.add("';\n");
    EXPECT_THAT(statements_of(splitter, false), ElementsAre("5:';\n';"));
}
