#include "host/sqlite/shell/secrets.h"

#include <algorithm>
#include <string>

#include "host/procedures.h"
#include "host/sqlite/shell/callparser.h"
#include "host/sqlite/shell/lexer.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::string_view secret = "password";

// A name may stand in quotes.
constexpr std::string_view closing_quotes = "\"`]";

std::string in_small_letters(std::string_view text) {
    std::string small(text);
    std::transform(small.begin(), small.end(), small.begin(), to_lower);
    return small;
}

// The number of its password; 0 for a procedure that takes none.
std::size_t password_number(const Procedure& procedure) {
    for (std::size_t i = 0; i < procedure.parameters.size(); ++i)
        if (procedure.parameters[i].name.find(secret) != std::string_view::npos) return i + 1;
    return 0;
}

// How many arguments without names stand in the parentheses that `text` begins with, if it does.
std::size_t positional_arguments(std::string_view text) {
    const std::string call_text = "CALL p" + std::string(text);
    CallStatement call;
    StatementError ignored;  // what follows the call in an SQL statement
    parse_call(call_text, call, ignored);
    return static_cast<std::size_t>(std::count_if(
        call.arguments.begin(), call.arguments.end(),
        [](const CallStatement::Argument& argument) { return argument.name.empty(); }));
}

bool gives_by_position(std::string_view text, const Procedure& procedure) {
    const std::size_t number = password_number(procedure);
    if (number == 0) return false;
    for (std::size_t at = text.find(procedure.name); at != std::string_view::npos;
         at = text.find(procedure.name, at + 1)) {
        std::size_t behind = at + procedure.name.size();
        if (behind < text.size() && closing_quotes.find(text[behind]) != std::string_view::npos)
            ++behind;
        behind = skip_blank(text, behind);
        if (positional_arguments(text.substr(behind)) >= number) return true;
    }
    return false;
}

// A whole row of the outbox's accounts needs no names of columns.
bool writes_account(std::string_view text) {
    const auto says = [text](std::string_view word) {
        return text.find(word) != std::string_view::npos;
    };
    return says("quorel_account") && (says("insert") || says("replace"));
}

}  // namespace

bool tells_password(std::string_view entry) {
    // Letters are lowered first, because neither SQL nor CALL minds their case.
    const std::string text = in_small_letters(entry);
    if (text.find(secret) != std::string::npos || writes_account(text)) return true;
    return std::any_of(
        procedures().begin(), procedures().end(),
        [&text](const Procedure& procedure) { return gives_by_position(text, procedure); });
}

}  // namespace host
