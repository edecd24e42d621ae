#include "host/sqlite/shell/script.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/descriptor.h"
#include "host/filebytes.h"
#include "host/sqlite/shell/signals.h"
#include "host/sqlite/shell/splitter.h"

namespace host {

namespace {

// How deep .read goes: a script may read itself.
constexpr int most_scripts_inside = 20;

// The statements of one source, which arrive in parts.
class Script {
  public:
    Script(Session& session, std::string source) : _session(session), _source(std::move(source)) {}

    // False when the script is over.
    bool feed(std::string_view lines) {
        _splitter.add(lines);
        while (const std::optional<Statement> statement = _splitter.next())
            if (!_run(*statement)) return false;
        return true;
    }

    Ran finish() {
        if (_over) return _result;
        if (const std::optional<Statement> statement = _splitter.rest()) _run(*statement);
        return _result;
    }

  private:
    bool _run(const Statement& statement) {
        const Ran ran = run_statement(_session, statement, _source);
        if (ran == Ran::Done && interrupted())
            fprintf(stderr, "quorelsql: %s:%zu: interrupted\n", _source.c_str(), statement.line);
        if (ran == Ran::Quit || ran == Ran::Failed) _result = ran;
        if (interrupted()) _result = Ran::Failed;
        _over = ran == Ran::Quit || interrupted() || (ran == Ran::Failed && _session.bail);
        return !_over;
    }

    Session& _session;
    const std::string _source;
    StatementSplitter _splitter;
    bool _over = false;
    Ran _result = Ran::Done;
};

// Says so, with errno's reason.
Ran fail_to_read_standard_input() {
    fprintf(stderr, "quorelsql: cannot read standard input: %s\n", strerror(errno));
    return Ran::Failed;
}

// Standard input as a stream of our own. In its place comes an empty one, so that a command which
// reads its standard input does not swallow the rest of the script. Null with errno set.
FILE* take_standard_input() {
    const int script = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (script < 0) return nullptr;
    if (const Descriptor empty = open_file("/dev/null", O_RDONLY); empty.is_open())
        dup2(empty.number(), STDIN_FILENO);
    return fdopen(script, "r");
}

}  // namespace

Ran run_commands(Session& session, const std::vector<std::string>& commands) {
    Ran result = Ran::Done;
    for (std::size_t i = 0; i < commands.size(); ++i) {
        Script script(session, commands.size() == 1 ? "-c" : "-c " + std::to_string(i + 1));
        script.feed(commands[i]);
        const Ran ran = script.finish();
        if (ran != Ran::Done) result = ran;
        if (ran == Ran::Quit || interrupted() || (ran == Ran::Failed && session.bail)) break;
    }
    return result;
}

Ran run_script_file(Session& session, const std::string& file, std::string& error) {
    FileBytes text;
    if (!text.read(file, error)) return Ran::Failed;
    if (session.scripts_inside == most_scripts_inside) {
        error = file + ": scripts run scripts too deep";
        return Ran::Failed;
    }
    ++session.scripts_inside;
    Script script(session, file);
    script.feed(text.view());
    const Ran result = script.finish();
    --session.scripts_inside;
    return result;
}

Ran run_standard_input(Session& session) {
    FILE* in = take_standard_input();
    if (in == nullptr) return fail_to_read_standard_input();
    Script script(session, "standard input");
    char* line = nullptr;
    std::size_t size = 0;
    bool over = false;
    for (ssize_t length = 0; !over && (length = getline(&line, &size, in)) > 0;)
        over = !script.feed({line, static_cast<std::size_t>(length)});
    // What cannot be read to its end has no statement that is whole.
    const Ran result = !over && feof(in) == 0 ? fail_to_read_standard_input() : script.finish();
    free(line);
    fclose(in);
    return result;
}

}  // namespace host
