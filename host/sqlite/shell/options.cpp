#include "host/sqlite/shell/options.h"

#include <cstdio>
#include <string_view>
#include <vector>

#include <getopt.h>
#include <sqlite3.h>

namespace host {

namespace {

constexpr int usage_error = 2;

constexpr const char* usage =
    R"(usage: quorelsql [OPTION...] [DATABASE] [FILE.sql]
       quorelsql [OPTION...] [DATABASE] -c SQL [-c SQL]...

Runs SQL, and CALL procedure(name => value, …), on a SQLite database with the
procedures of the quorel library: from SQL, from FILE.sql, or typed in.

  DATABASE     a SQLite database file, made when it is missing; without one,
               a database in memory. A name that ends in .sql is a script.
  FILE.sql     the statements of this file; - for standard input
  -c SQL       these statements, or a command that .help lists; may stand again
  -csv, -json  results in this form; -line and -table too
  --lib FILE   the procedure library (libquorel_static.so)
  --in-process run the procedures in this process, not in a quorel-worker; what
               waits can then not be cancelled, unless it is a command
  -h, --help   this text
  --version    versions of quorelsql and SQLite

Exit status: 0; 1 when a statement failed (a script stops there, but see .bail);
2 when the command line is wrong. A status other than 0 that a procedure returns
is a value like any other and no failure.
)";

Options wrong(const std::string& message) {
    fprintf(stderr, "quorelsql: %s; try quorelsql --help\n", message.c_str());
    Options options;
    options.exit = usage_error;
    return options;
}

// getopt_long leaves a bad letter in optopt; for a bad long option there is only its argument.
std::string bad_option(const char* argument) {
    return optopt != 0 ? std::string("-") + static_cast<char>(optopt) : argument;
}

Options place_names(Options options, const std::vector<std::string>& names) {
    if (names.size() > 2) return wrong("too many names: give one DATABASE and one script");
    if (names.size() == 2) {
        options.database = names[0];
        options.script = names[1];
    } else if (names.size() == 1) {
        const bool is_script = names[0] == "-" || names[0].ends_with(".sql");
        (is_script ? options.script.emplace() : options.database) = names[0];
    }
    if (!options.commands.empty() && options.script)
        return wrong("give either -c SQL or a script, not both");
    return options;
}

}  // namespace

Options parse_options(int argc, char** argv) {
    enum { Lib = 256, InProcess, Version, FirstMode };
    const auto mode = [](Mode which) { return FirstMode + static_cast<int>(which); };
    const option long_options[] = {
        {"lib", required_argument, nullptr, Lib},
        {"in-process", no_argument, nullptr, InProcess},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, Version},
        {"table", no_argument, nullptr, mode(Mode::Table)},
        {"line", no_argument, nullptr, mode(Mode::Line)},
        {"csv", no_argument, nullptr, mode(Mode::Csv)},
        {"json", no_argument, nullptr, mode(Mode::Json)},
        {nullptr, 0, nullptr, 0},
    };
    Options options;
    opterr = 0;
    // One dash does for a long option too.
    for (int chosen = 0;
         (chosen = getopt_long_only(argc, argv, ":c:h", long_options, nullptr)) != -1;) {
        switch (chosen) {
        case 'c':
            options.commands.emplace_back(optarg);
            break;
        case Lib:
            options.library = optarg;
            break;
        case InProcess:
            options.place = Place::InProcess;
            break;
        case 'h':
            fputs(usage, stdout);
            options.exit = 0;
            return options;
        case Version:
            printf("quorelsql %s (SQLite %s)\n", QUOREL_VERSION, sqlite3_libversion());
            options.exit = 0;
            return options;
        case ':':
            return wrong(std::string(argv[optind - 1]) + " needs a value");
        default:
            if (chosen >= FirstMode) {
                options.mode = static_cast<Mode>(chosen - FirstMode);
                break;
            }
            return wrong("unknown option " + bad_option(argv[optind - 1]));
        }
    }
    return place_names(options, {argv + optind, argv + argc});
}

}  // namespace host
