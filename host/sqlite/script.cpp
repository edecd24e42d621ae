#include "host/sqlite/script.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/filebytes.h"
#include "host/sqlite/interrupt.h"
#include "host/sqlite/runstatement.h"

namespace host {

namespace {

// The statements of one source, which arrive in parts.
class Script {
  public:
    Script(Session& session, std::string source) : _session(session), _source(std::move(source)) {}

    // False when the script is over: a statement failed or said .quit.
    bool feed(std::string_view lines) {
        _splitter.add(lines);
        while (const std::optional<Statement> statement = _splitter.next())
            if (!_run(*statement)) return false;
        return true;
    }

    int finish() {
        if (_over) return _status;
        if (const std::optional<Statement> statement = _splitter.rest()) _run(*statement);
        return _status;
    }

  private:
    bool _run(const Statement& statement) {
        const Ran ran = run_statement(_session, statement, _source);
        if (ran == Ran::Done && interrupted())
            fprintf(stderr, "quorelsql: %s:%zu: interrupted\n", _source.c_str(), statement.line);
        _status = ran == Ran::Failed || interrupted() ? 1 : 0;
        _over = _status != 0 || ran == Ran::Quit;
        return !_over;
    }

    Session& _session;
    const std::string _source;
    StatementSplitter _splitter;
    bool _over = false;
    int _status = 0;
};

// Says so, with errno's reason.
int fail_to_read_standard_input() {
    fprintf(stderr, "quorelsql: cannot read standard input: %s\n", strerror(errno));
    return 1;
}

// Standard input as a stream of our own. In its place comes an empty one, so that a command which
// reads its standard input does not swallow the rest of the script. Null with errno set.
FILE* take_standard_input() {
    const int script = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (script < 0) return nullptr;
    const int empty = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (empty >= 0) {
        dup2(empty, STDIN_FILENO);
        close(empty);
    }
    return fdopen(script, "r");
}

}  // namespace

int run_command(Session& session, const std::string& sql) {
    Script script(session, "-c");
    script.feed(sql);
    return script.finish();
}

int run_script_file(Session& session, const std::string& file) {
    FileBytes text;
    std::string error;
    if (!text.read(file, error)) {
        fprintf(stderr, "quorelsql: %s\n", error.c_str());
        return 1;
    }
    Script script(session, file);
    script.feed(text.view());
    return script.finish();
}

int run_standard_input(Session& session) {
    FILE* in = take_standard_input();
    if (in == nullptr) return fail_to_read_standard_input();
    Script script(session, "standard input");
    char* line = nullptr;
    std::size_t size = 0;
    bool over = false;
    for (ssize_t length = 0; !over && (length = getline(&line, &size, in)) > 0;)
        over = !script.feed({line, static_cast<std::size_t>(length)});
    // What cannot be read to its end has no statement that is whole.
    const int status = !over && feof(in) == 0 ? fail_to_read_standard_input() : script.finish();
    free(line);
    fclose(in);
    return status;
}

}  // namespace host
