/// quorelsql: an SQL shell over an embedded SQLite, with the procedures built in.

#include <langinfo.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstring>

#include "host/sqlite/interrupt.h"
#include "host/sqlite/options.h"
#include "host/sqlite/script.h"
#include "host/sqlite/session.h"
#include "host/sqlite/terminal.h"

namespace {

// Text is UTF-8 in SQLite, whatever the user's locale says.
void use_utf8() {
    setlocale(LC_CTYPE, "");
    if (strcmp(nl_langinfo(CODESET), "UTF-8") != 0) setlocale(LC_CTYPE, "C.UTF-8");
}

int run(host::Session& session, const host::Options& options) {
    if (options.command) return run_command(session, *options.command);
    if (options.script && *options.script != "-") return run_script_file(session, *options.script);
    if (!session.interactive) return run_standard_input(session);
    run_terminal(session);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const host::Options options = host::parse_options(argc, argv);
    if (options.exit) return *options.exit;
    use_utf8();

    host::Session session;
    session.interactive = !options.command && !options.script && isatty(STDIN_FILENO) != 0 &&
                          isatty(STDOUT_FILENO) != 0;
    std::string error;
    if (!session.open(options.database, options.library, error)) {
        fprintf(stderr, "quorelsql: %s\n", error.c_str());
        return 1;
    }
    host::catch_signals(session.db, !session.interactive);
    const int status = run(session, options);
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    perror("quorelsql: cannot write");
    return 1;
}
