#include "host/outbox/options.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include <getopt.h>

#include "host/outbox/oneline.h"
#include "host/seconds.h"
#include "host/text.h"

namespace host::outbox {

namespace {

constexpr int most_sessions = 256;

constexpr const char* usage = R"(quorel-outbox sends the mail that waits in a database.

usage: quorel-outbox [OPTION...] FILE.db | CONNINFO

FILE.db is a SQLite database, with ./ in front where the name looks like something
else; CONNINFO is PostgreSQL's: postgresql://… or name=value words. Without either,
QUOREL_OUTBOX in the environment names it, which other users cannot read.

  --install      make the outbox's tables, or bring them up to date, and end
  --status       tell what waits, what failed and why, and end
  --once         end when nothing is due any more
  --sessions N   keep up to N mail sessions open at the same time (4)
  --metrics FILE write figures for Prometheus into FILE every 15 seconds
  --retry S,L    try a message again after S seconds, then twice as long each time,
                 up to L seconds (30,3600)
  --probe S,L    the same for a mail server that is away (5,900)
  --lease S      what a daemon that died had in hand is free after S seconds (60)
  --lib FILE     the library to send with; else QUOREL_LIBRARY, else
                 libquorel_static.so as it was built or installed with this program
  --help         show this text

Any number of daemons may work on one outbox, in SQLite those of one machine. SIGTERM
or SIGINT ends this one after the messages in hand, a second one at once; such a message
is sent again later.

Exit status: 0 done; 1 with --once, not all was sent, or ended by a third signal; 2 a
wrong command line; 3 the outbox, the library or the machine does not serve, and why.
)";

bool complain(const std::string& sentence) {
    fprintf(stderr, "quorel-outbox: %s\n", on_one_line(sentence).c_str());
    return false;
}

std::optional<Pause> positive_seconds(std::string_view text) {
    const std::optional<Pause> seconds = parse_deadline(text);
    return seconds && seconds->count() > 0 ? seconds : std::nullopt;
}

bool read_pauses(const char* option, std::string_view text, Pauses& pauses) {
    const std::size_t comma = text.find(',');
    const auto first = positive_seconds(text.substr(0, comma));
    const auto longest =
        comma == std::string_view::npos ? std::nullopt : positive_seconds(text.substr(comma + 1));
    if (!first || !longest || *longest < *first)
        return complain(std::string("--") + option +
                        " takes two numbers of seconds above 0, the larger one last, not " +
                        std::string(text));
    pauses = {*first, *longest};
    return true;
}

bool read_sessions(std::string_view text, int& sessions) {
    sessions = parse_number<int>(text).value_or(0);
    return (sessions >= 1 && sessions <= most_sessions) ||
           complain("--sessions takes a number from 1 to " + std::to_string(most_sessions) +
                    ", not " + std::string(text));
}

// So long that a pause of the machine does not end it, and not so long that mail is stuck.
bool read_lease(std::string_view text, Pause& lease) {
    constexpr Pause shortest = std::chrono::seconds(2);
    constexpr Pause longest = std::chrono::hours(1);
    lease = positive_seconds(text).value_or(Pause(0));
    return (lease >= shortest && lease <= longest) ||
           complain("--lease takes a number of seconds from 2 to 3600, not " + std::string(text));
}

bool read_option(int found, Options& options) {
    switch (found) {
    case 'i':
        options.job = Job::Install;
        return true;
    case 's':
        options.job = Job::Status;
        return true;
    case 'o':
        options.rules.once = true;
        return true;
    case 'n':
        return read_sessions(optarg, options.sessions);
    case 'm':
        options.metrics = optarg;
        return *optarg != '\0' || complain("--metrics takes the name of a file");
    case 'r':
        return read_pauses("retry", optarg, options.rules.retries);
    case 'p':
        return read_pauses("probe", optarg, options.rules.calls);
    case 'e':
        return read_lease(optarg, options.rules.lease);
    case 'l':
        options.library = optarg;
        return true;
    default:
        fputs("Try quorel-outbox --help.\n", stderr);
        return false;
    }
}

bool read_place(int argc, char** argv, Options& options) {
    const char* named = getenv("QUOREL_OUTBOX");
    if (optind < argc)
        options.where = argv[optind++];
    else if (named != nullptr)
        options.where = named;
    if (optind < argc)
        return complain("one outbox at a time: what is " + std::string(argv[optind]) + "?");
    if (!options.where.empty()) return true;
    fputs(usage, stderr);
    return false;
}

}  // namespace

bool read_command_line(int argc, char** argv, Options& options, int& status) {
    const option known[] = {{"install", no_argument, nullptr, 'i'},
                            {"status", no_argument, nullptr, 's'},
                            {"once", no_argument, nullptr, 'o'},
                            {"sessions", required_argument, nullptr, 'n'},
                            {"metrics", required_argument, nullptr, 'm'},
                            {"retry", required_argument, nullptr, 'r'},
                            {"probe", required_argument, nullptr, 'p'},
                            {"lease", required_argument, nullptr, 'e'},
                            {"lib", required_argument, nullptr, 'l'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
    status = EXIT_WRONG_USAGE;
    for (int found = 0; (found = getopt_long(argc, argv, "h", known, nullptr)) != -1;) {
        if (found == 'h') {
            fputs(usage, stdout);
            status = EXIT_DONE;
            return false;
        }
        if (!read_option(found, options)) return false;
    }
    return read_place(argc, argv, options);
}

}  // namespace host::outbox
