#include "host/xpcalloptions.h"

#include <getopt.h>

#include <cstdio>

#include "host/nearestname.h"
#include "host/text.h"
#include "host/xpcallreport.h"

namespace host {

namespace {

constexpr const char* usage = R"(xpcall calls one procedure of libquorel_static.so.

usage: xpcall [--lib FILE] [--piece N] PROCEDURE ARG...
       xpcall --list

  --lib FILE   the library to load; else QUOREL_LIBRARY, else libquorel_static.so
               beside this program
  --piece N    hand arguments over in pieces of N bytes (32768)
  --list       show every procedure with its parameters
  --help       show this text

The ARGs stand for the procedure's parameters in order; trailing ones that may
be absent can be left out. Each ARG is one of
  null         SQL NULL
  out          an OUT parameter's place
  int:5        a number
  @file        the bytes of a file
  text:...     the text after the colon, whatever it looks like
  ...          any other text, as it stands

Standard output gets what the procedure hands back and nothing else: a status as
"status N: its meaning", OUT values as "name = value", each on a line, and the
bytes of xp_read_file as they are. OUT values that are NULL are shown where "out"
was given. All else goes to standard error. Ctrl-C cancels a running command; a
second one ends xpcall.

Exit status: 0 success, 1 the procedure failed, 2 it was not called.

  xpcall xp_read_file /etc/hostname >copy
  xpcall xp_write_file copy 'text:new contents'
  xpcall xp_sprintf out '%s and %s' salt pepper
  xpcall xp_scanf '12 abc' '%s %s' out out
  xpcall xp_cmdshell 'exit 3'
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
            printf("    %-12s %-9s %s\n", name.c_str(), kind, parameter.meaning.data());
        }
    }
}

}  // namespace

bool read_command_line(int argc, char** argv, XpcallOptions& options, int& status) {
    const option known[] = {{"lib", required_argument, nullptr, 'l'},
                            {"piece", required_argument, nullptr, 'p'},
                            {"list", no_argument, nullptr, 'L'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
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
    options.procedure = find_procedure(argv[optind]);
    if (options.procedure == nullptr) {
        complain(unknown_procedure(argv[optind]) + " (xpcall --list shows all)");
        return false;
    }
    options.arguments.assign(argv + optind + 1, argv + argc);
    return true;
}

}  // namespace host
