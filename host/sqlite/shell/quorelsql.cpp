/// quorelsql: an SQL shell over an embedded SQLite, with the procedures built in.

#include <clocale>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include <langinfo.h>
#include <unistd.h>

#include "host/sqlite/shell/options.h"
#include "host/sqlite/shell/script.h"
#include "host/sqlite/shell/session.h"
#include "host/sqlite/shell/signals.h"
#include "host/sqlite/shell/terminal.h"
#include "host/startup.h"

namespace {

// Text is UTF-8 in SQLite, whatever the user's locale says.
void use_utf8() {
    setlocale(LC_CTYPE, "");
    if (strcmp(nl_langinfo(CODESET), "UTF-8") != 0) setlocale(LC_CTYPE, "C.UTF-8");
}

// What a file or a pipe gives may be larger than this process.
[[noreturn]] void give_up() {
    constexpr std::string_view message = "quorelsql: out of memory\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message.data(), message.size());
    _exit(1);
}

host::Ran run(host::Session& session, const host::Options& options) {
    if (session.interactive) {
        run_terminal(session);
        return host::Ran::Done;
    }
    if (!options.commands.empty()) return run_commands(session, options.commands);
    if (!options.script || *options.script == "-") return run_standard_input(session);
    std::string error;
    const host::Ran ran = run_script_file(session, *options.script, error);
    if (!error.empty()) fprintf(stderr, "quorelsql: %s\n", error.c_str());
    return ran;
}

int run_with(const host::Options& options) {
    host::Session session;
    session.interactive = options.commands.empty() && !options.script &&
                          isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    session.bail = !session.interactive;
    session.style.mode = options.mode;
    session.style.terminal = isatty(STDOUT_FILENO) != 0;
    std::string error;
    if (!session.open(options.database, options.library, options.place, error)) {
        fprintf(stderr, "quorelsql: %s\n", error.c_str());
        return 1;
    }
    host::catch_signals(session.db, !session.interactive);
    const bool failed = run(session, options) == host::Ran::Failed || session.failed;
    return failed && !session.interactive ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    host::start_program();
    std::set_new_handler(give_up);
    const host::Options options = host::parse_options(argc, argv);
    use_utf8();
    const int status = options.exit ? *options.exit : run_with(options);
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    perror("quorelsql: cannot write");
    return 1;
}
