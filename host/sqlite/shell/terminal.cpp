#include "host/sqlite/shell/terminal.h"

#include <cstdio>
#include <string>
#include <vector>

#include "host/procedures.h"
#include "host/sqlite/shell/dispatcher.h"
#include "host/sqlite/shell/dotcommands.h"
#include "host/sqlite/shell/lineeditor.h"
#include "host/sqlite/shell/secrets.h"
#include "host/sqlite/shell/signals.h"
#include "host/sqlite/shell/splitter.h"

namespace host {

namespace {

std::vector<std::string> words_to_complete() {
    std::vector<std::string> words = dot_command_names();
    for (const Procedure& procedure : procedures()) words.emplace_back(procedure.name);
    return words;
}

bool is_kept(const std::string& entry) {
    return !entry.starts_with(' ') && !tells_password(entry);
}

class Conversation {
  public:
    explicit Conversation(Session& session)
        : _session(session), _editor(words_to_complete(), _history) {}

    void run() {
        for (;;) {
            std::string line;
            const char* prompt = _splitter.pending() ? "      ...> " : "quorelsql> ";
            switch (_editor.read(prompt, line)) {
            case LineEditor::Input::End:
                if (_splitter.pending())
                    fputs("quorelsql: the unfinished statement was not run\n", stderr);
                return;
            case LineEditor::Input::Cancelled:
                _splitter.clear();
                _entry.clear();
                break;
            case LineEditor::Input::Line:
                if (!_take(line)) return;
            }
        }
    }

  private:
    // False once .quit was typed.
    bool _take(const std::string& line) {
        _entry += _entry.empty() ? line : "\n" + line;
        _splitter.add(line + "\n");
        std::vector<Statement> statements;
        while (const std::optional<Statement> statement = _splitter.next())
            statements.push_back(*statement);
        if (!_splitter.pending()) _remember();
        for (const Statement& statement : statements) {
            const Ran ran = run_statement(_session, statement, "");
            if (ran == Ran::Quit) return false;
            if (interrupted()) break;
        }
        return true;
    }

    void _remember() {
        const bool blank = _entry.find_first_not_of(" \t\n") == std::string::npos;
        if (!blank) _history.add(_entry, is_kept(_entry));
        _entry.clear();
    }

    Session& _session;
    InputHistory _history;
    LineEditor _editor;
    StatementSplitter _splitter;
    std::string _entry;  // the lines since the last statement ended
};

}  // namespace

void run_terminal(Session& session) {
    printf("quorelsql %s on SQLite %s. Type .help for help, Ctrl-D to leave.\n", QUOREL_VERSION,
           sqlite3_libversion());
    Conversation(session).run();
}

}  // namespace host
