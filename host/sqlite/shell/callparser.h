#ifndef QUOREL_HOST_SQLITE_SHELL_CALLPARSER_H
#define QUOREL_HOST_SQLITE_SHELL_CALLPARSER_H

/// The shell's own statement, which SQLite does not know:
///
///     CALL procedure ( [argument {, argument}] ) [;]
///     argument = [name =>] expression
///
/// An expression is anything that SQLite can select: a literal, a call, a scalar subquery. A
/// procedure that needs no argument may be called without the parentheses.

#include <string_view>
#include <vector>

#include "host/sqlite/shell/statement.h"

namespace host {

/// The parts of a CALL, as views into the statement's text.
struct CallStatement {
    struct Argument {
        std::string_view name;        ///< empty for a positional argument
        std::string_view expression;  ///< not empty, not evaluated
    };
    std::string_view procedure;
    std::vector<Argument> arguments;
};

/// True when `text` is a CALL, well formed or not.
[[nodiscard]] bool is_call(std::string_view text);

/// Parses a CALL. False with `error` set when it is malformed, or a positional argument stands
/// behind a named one; `call` then holds what came before.
bool parse_call(std::string_view text, CallStatement& call, StatementError& error);

}  // namespace host

#endif
