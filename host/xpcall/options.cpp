#include "host/xpcall/options.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <string_view>

#include <getopt.h>

#include "host/nearestname.h"
#include "host/seconds.h"
#include "host/text.h"
#include "host/xpcall/report.h"

namespace host {

namespace {

constexpr const char* usage = R"(xpcall calls procedures of libquorel_static.so.

usage: xpcall [OPTION...] PROCEDURE ARG...
       xpcall [OPTION...] --calls PROCEDURE ARG... [+ PROCEDURE ARG...]...
       xpcall --list

  --lib FILE   the library to load; else QUOREL_LIBRARY, else libquorel_static.so
               as it was built or installed with this program
  --piece N    hand arguments over in pieces of N bytes (32768)
  --worker     run the calls in a process of their own, quorel-worker, so that
               Ctrl-C cancels any of them, whatever it waits for
  --deadline S end a call that takes longer than S seconds; in a worker
  --calls      several calls, with a + between two of them; the first that fails
               is the last
  --list       show every procedure with its parameters
  --help       show this text

The ARGs stand for the procedure's parameters in the order of --list; trailing
ones that may be absent can be left out. Each ARG is one of
  null         SQL NULL
  out          an OUT parameter's place
  int:5        a number
  @file        the bytes of a file
  text:...     the text after the colon, whatever it looks like
  ...          any other text, as it stands

Standard output gets what the procedure hands back and nothing else: a status as
"status N: its meaning", OUT values as "name = value", each on a line (on a
terminal with escapes for control characters), and the bytes of xp_read_file as
they are. OUT values that are NULL are shown where "out" was given. All else goes to standard error. Ctrl-C cancels a running command, with
all that it started; a second one ends xpcall.

A call fails when its status is not 0, when all that it gives is NULL, or when it
is cancelled. A mail session that is open at the end is stopped.

Exit status: 0 success, 1 a procedure failed, 2 one was not called: the command
line is wrong, or a value in it cannot be had.

  xpcall xp_read_file /etc/hostname >copy
  xpcall xp_write_file copy 'text:new contents'
  xpcall xp_sprintf out '%s and %s' salt pepper
  xpcall xp_scanf '12 abc' '%s %s' out out
  xpcall xp_cmdshell 'exit 3'
  xpcall --calls xp_startsmtp me@example.org localhost + xp_sendmail you@example.org Hi
)";

void list_procedures() {
    for (const Procedure& procedure : procedures()) {
        printf("%s: %s\n", procedure.name.data(), procedure.summary.data());
        for (std::uint32_t row = 1; row <= procedure.parameters.size(); ++row) {
            const Parameter& parameter = procedure.parameter(row);
            const bool repeated = procedure.repeats != 0 && row == procedure.parameters.size();
            const std::string name = procedure.parameter_name(row) + (repeated ? " ..." : "");
            const char* kind = parameter.direction == Direction::Out ? "OUT"
                               : parameter.absent == Absent::Refuse  ? ""
                                                                     : "optional";
            printf("    %-20s %-9s %s\n", name.c_str(), kind, parameter.meaning.data());
        }
    }
}

bool read_call(std::span<char*> words, XpcallCall& call) {
    if (words.empty()) {
        complain("a call is missing before or behind a +");
        return false;
    }
    call.procedure = find_procedure(words[0]);
    if (call.procedure == nullptr) {
        complain(unknown_procedure(words[0]) + " (xpcall --list shows all)");
        return false;
    }
    call.arguments.assign(words.begin() + 1, words.end());
    return true;
}

bool read_calls(std::span<char*> words, std::vector<XpcallCall>& calls) {
    for (;;) {
        const auto end = std::find(words.begin(), words.end(), std::string_view("+"));
        if (!read_call({words.begin(), end}, calls.emplace_back())) return false;
        if (end == words.end()) return true;
        words = {end + 1, words.end()};
    }
}

}  // namespace

bool read_command_line(int argc, char** argv, XpcallOptions& options, int& status) {
    const option known[] = {
        {"lib", required_argument, nullptr, 'l'}, {"piece", required_argument, nullptr, 'p'},
        {"worker", no_argument, nullptr, 'w'},    {"deadline", required_argument, nullptr, 'd'},
        {"calls", no_argument, nullptr, 'c'},     {"list", no_argument, nullptr, 'L'},
        {"help", no_argument, nullptr, 'h'},      {}};
    bool several = false;
    status = EXIT_NOT_CALLED;
    // "+": what follows the procedure's name is its own, dashes and all.
    for (int found = 0; (found = getopt_long(argc, argv, "+h", known, nullptr)) != -1;) {
        switch (found) {
        case 'l':
            options.library = optarg;
            break;
        case 'p':
            options.piece = parse_number<std::uint32_t>(optarg).value_or(0);
            if (options.piece > 0) break;
            complain("--piece takes a number of bytes from 1 up, not " + std::string(optarg));
            return false;
        case 'd':
            options.deadline = parse_deadline(optarg).value_or(std::chrono::milliseconds(0));
            options.place = Place::InWorker;
            if (options.deadline.count() > 0) break;
            complain("--deadline takes a number of seconds above 0, not " + std::string(optarg));
            return false;
        case 'w':
            options.place = Place::InWorker;
            break;
        case 'c':
            several = true;
            break;
        case 'L':
            list_procedures();
            status = EXIT_SUCCEEDED;
            return false;
        case 'h':
            fputs(usage, stdout);
            status = EXIT_SUCCEEDED;
            return false;
        default:
            fputs("Try xpcall --help.\n", stderr);
            return false;
        }
    }
    if (optind == argc) {
        fputs(usage, stderr);
        return false;
    }
    const std::span<char*> words(argv + optind, argv + argc);
    return several ? read_calls(words, options.calls)
                   : read_call(words, options.calls.emplace_back());
}

}  // namespace host
