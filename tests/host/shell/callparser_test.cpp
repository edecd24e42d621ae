#include "host/sqlite/shell/callparser.h"

#include <gtest/gtest.h>

#include "host/sqlite/shell/secrets.h"

using host::CallStatement;
using host::StatementError;

namespace {

// "procedure|name=expression|expression", or "offset: message" when the text is wrong.
std::string parse(std::string_view text) {
    CallStatement call;
    StatementError error;
    if (!host::parse_call(text, call, error))
        return std::to_string(error.offset) + ": " + error.message;
    std::string parts(call.procedure);
    for (const CallStatement::Argument& argument : call.arguments) {
        parts += '|';
        if (!argument.name.empty()) parts.append(argument.name).append("=");
        parts += argument.expression;
    }
    return parts;
}

}  // namespace

TEST(CallParser, finds_the_arguments_or_points_at_what_is_wrong) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"CALL p", "p"},
        {"CALL p ( ) ;", "p"},
        {"CALL p(1, 'two', NULL, x'00ff')", "p|1|'two'|NULL|x'00ff'"},
        {"CALL p(1, a => 1, B=>-2.5e3);", "p|1|a=1|B=-2.5e3"},
        {"CALL p('a,b)', 'it''s', \"(\", [,], `)`)", "p|'a,b)'|'it''s'|\"(\"|[,]|`)`"},
        {"CALL p(f(1, (2)), (SELECT a, b FROM t))", "p|f(1, (2))|(SELECT a, b FROM t)"},
        {"CALL p(a >= b, c = d, e)", "p|a >= b|c = d|e"},
        {"CALL /* x */ p -- y\n ( a /* , */ => -- )\n 1 /* ( */ )", "p|a=1 /* ( */"},
        {"CALL p(naïve => 'ü')", "p|naïve='ü'"},
        {"CALL", "4: CALL needs the name of a procedure"},
        {"CALL 'p'()", "5: CALL needs the name of a procedure"},
        {"CALL p(1", "6: this ( has no matching )"},
        {"CALL p(1,)", "9: an argument is missing here"},
        {"CALL p(,1)", "7: an argument is missing here"},
        {"CALL p(a =>)", "11: an argument is missing here"},
        {"CALL p('a)", "7: this quote or comment has no end"},
        {"CALL p(a => 1, 2)", "15: an argument without a name stands behind one with a name"},
        {"CALL p() FROM t", "9: the CALL should end here"},
    };
    for (const auto& [text, parts] : cases) EXPECT_EQ(parts, parse(text)) << text;
}

TEST(Secrets, are_passwords_given_by_name_or_by_position) {
    for (const char* telling : {
             "CALL xp_startsmtp(host => 'h', AUTH_Password => 'x')",
             "CALL xp_startsmtp('a', 'h', 25, 60, 'n', 'u', 'secret')",
             "SELECT 1; select XP_startsmtp (f(1, 2), ')', 25, 60, 'n', 'u', 'x', 'c') + 1 FROM t",
             "SELECT \"xp_startsmtp\" /* ( */ ('a', 'h', 25, 60, 'n', 'u', 'x')",
             "SELECT xp_startsmtp('a'); SELECT xp_startsmtp('a', 'h', 1, 2, 'n', 'u', 'x')",
             "INSERT INTO quorel_account(name, host, username, PASSWORD) VALUES('a', 'h', 'u', "
             "'x')",
             "Replace INTO main.\"Quorel_Account\" SELECT 'a', 'h', 25, '', '', '', '', 'u', 'x'",
         })
        EXPECT_TRUE(host::tells_password(telling)) << telling;
    for (const char* harmless : {
             "CALL xp_startsmtp('a', 'h', 25, 60, 'n', 'u')",
             "CALL xp_startsmtp('a', 'h', 25, trusted_cert => 'a', cert_unit => '1,2,3,4,5,6,7')",
             "SELECT name FROM quorel_account",
             "SELECT xp_sprintf('%s', 1, 2, 3, 4, 5, 6, 7, 8), 'xp_startsmtp'",
         })
        EXPECT_FALSE(host::tells_password(harmless)) << harmless;
}
