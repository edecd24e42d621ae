#include "host/sqlite/shell/dispatcher.h"

#include <algorithm>
#include <cstdio>

#include "host/displaytext.h"
#include "host/sqlite/shell/callparser.h"
#include "host/sqlite/shell/callrunner.h"
#include "host/sqlite/shell/dotcommands.h"
#include "host/sqlite/shell/signals.h"
#include "host/sqlite/shell/sqlrunner.h"

namespace host {

namespace {

void report(const Statement& statement, const std::string& source, const StatementError& error) {
    std::string place;
    if (!source.empty()) {
        const std::string_view before = std::string_view(statement.text).substr(0, error.offset);
        const auto lines = std::count(before.begin(), before.end(), '\n');
        place =
            source + ":" + std::to_string(statement.line + static_cast<std::size_t>(lines)) + ": ";
    }
    fflush(stdout);
    leave_echoed_line();
    // A message quotes what the statement or the database holds.
    fprintf(stderr, "quorelsql: %s%s\n", place.c_str(), display_text(error.message).c_str());
}

Ran run(Session& session, const std::string& text, StatementError& error) {
    if (is_dot_command(text)) {
        const DotResult result = run_dot_command(session, text, error.message);
        if (result == DotResult::Quit) return Ran::Quit;
        return result == DotResult::Done ? Ran::Done : Ran::Failed;
    }
    // SQLite would silently stop reading there.
    if (const std::size_t zero = text.find('\0'); zero != std::string::npos) {
        error = {"a zero byte stands in the statement", zero};
        return Ran::Failed;
    }
    const bool done =
        is_call(text) ? run_call(session, text, error) : run_sql(session, text, error);
    return done ? Ran::Done : Ran::Failed;
}

}  // namespace

Ran run_statement(Session& session, const Statement& statement, const std::string& source) {
    const Running running;
    // A command that the statement starts writes to the same standard output.
    fflush(stdout);
    StatementError error;
    const Ran ran = run(session, statement.text, error);
    if (ran == Ran::Failed) session.failed = true;
    if (!error.message.empty()) report(statement, source, error);
    fflush(stdout);
    return ran;
}

}  // namespace host
