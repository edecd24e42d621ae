#ifndef QUOREL_HOST_SQLITE_SHELL_SPLITTER_H
#define QUOREL_HOST_SQLITE_SHELL_SPLITTER_H

/// Cuts a stream of SQL text into statements.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/sqlite/shell/statement.h"

namespace host {

/// Feed it text, take statements until there is none, feed on. What was scanned once is not scanned
/// again, so long statements that arrive line by line cost no more than others.
class StatementSplitter {
  public:
    /// Adds input: whole lines, the last one excepted. A byte order mark at the start of it all is
    /// no part of a statement.
    void add(std::string_view lines);

    /// The next statement that is complete as sqlite3_complete() judges it, so a trigger's body
    /// stays in one piece.
    std::optional<Statement> next();

    /// At the end of the input: the statement that lacks its semicolon, nothing when none is begun.
    std::optional<Statement> rest();

    /// True when a statement has begun whose end has not come. Meaningful after next() gave
    /// nothing.
    [[nodiscard]] bool pending() const { return _begin < _text.size(); }

    /// Forgets what is pending.
    void clear();

  private:
    std::optional<std::size_t> _find_end();
    Statement _take(std::size_t end);
    void _skip_blank();

    std::string _text;
    bool _fresh = true;         // nothing was added yet
    std::size_t _begin = 0;     // of the current statement in _text
    std::size_t _scanned = 0;   // up to here the current statement holds no end
    std::string_view _closing;  // closes the quoted text or comment that is open at _scanned
    std::size_t _line = 1;      // of _begin
};

}  // namespace host

#endif
