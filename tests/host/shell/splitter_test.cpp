#include "host/sqlite/shell/splitter.h"

#include <gtest/gtest.h>

using host::Statement;
using host::StatementSplitter;

namespace {

// Each statement of the lines, which come in turn, as "line:text".
std::vector<std::string> split(const std::vector<std::string>& lines) {
    StatementSplitter splitter;
    std::vector<std::string> found;
    const auto add = [&found](const Statement& statement) {
        found.push_back(std::to_string(statement.line) + ":" + statement.text);
    };
    for (const std::string& line : lines) {
        splitter.add(line);
        while (const auto statement = splitter.next()) add(*statement);
    }
    if (const auto statement = splitter.rest()) add(*statement);
    return found;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines(1);
    for (const char c : text) {
        lines.back() += c;
        if (c == '\n') lines.emplace_back();
    }
    return lines;
}

struct Case {
    std::string text;
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
        EXPECT_EQ(c.statements, split({c.text}));
        EXPECT_EQ(c.statements, split(lines_of(c.text))) << "line by line";
    }
}

TEST(StatementSplitter, tells_whether_a_statement_has_begun) {
    StatementSplitter splitter;
    struct Line {
        std::string text;
        bool pending;
    };
    for (const Line& line : {Line{"SELECT 1; -- done\n", false},
                             {"/* a comment\n", true},
                             {"has ended */\n", false},
                             {"SELECT 'it''s;\n", true}}) {
        splitter.add(line.text);
        while (splitter.next()) continue;
        EXPECT_EQ(line.pending, splitter.pending()) << line.text;
    }
    splitter.clear();
    EXPECT_FALSE(splitter.pending());
    splitter.add("';\n';\n");
    EXPECT_EQ(5U, splitter.next()->line) << "the quote that was open is forgotten";
}
