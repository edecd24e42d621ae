#ifndef QUOREL_HOST_SQLITE_SHELL_STATEMENT_H
#define QUOREL_HOST_SQLITE_SHELL_STATEMENT_H

#include <cstddef>
#include <string>

namespace host {

/// One statement, from its first byte that is no blank or comment to its semicolon. A command to
/// the shell ends with its line instead.
struct Statement {
    std::string text;
    std::size_t line = 1;  ///< where it begins in the whole stream
};

/// What is wrong with a statement, and the byte of its text that shows it.
struct StatementError {
    std::string message;
    std::size_t offset = 0;
};

}  // namespace host

#endif
