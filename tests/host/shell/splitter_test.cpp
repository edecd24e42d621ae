#include "host/sqlite/shell/splitter.h"

#include <gtest/gtest.h>

using host::Statement;
using host::StatementSplitter;

namespace {

// Each statement as "line:text", of a text that comes at once or line by line.
std::vector<std::string> split(std::string_view text, bool by_line) {
    StatementSplitter splitter;
    std::vector<std::string> found;
    const auto add = [&found](const Statement& statement) {
        found.push_back(std::to_string(statement.line) + ":" + statement.text);
    };
    while (!text.empty()) {
        const std::size_t end =
            by_line ? std::min(text.find('\n'), text.size() - 1) + 1 : text.size();
        splitter.add(text.substr(0, end));
        text.remove_prefix(end);
        while (const auto statement = splitter.next()) add(*statement);
    }
    if (const auto statement = splitter.rest()) add(*statement);
    return found;
}

}  // namespace

TEST(StatementSplitter, cuts_at_the_semicolons_that_end_a_statement) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
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
    };
    for (const auto& [text, statements] : cases)
        for (const bool by_line : {false, true})
            EXPECT_EQ(statements, split(text, by_line)) << text << by_line;
}
