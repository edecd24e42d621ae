// xpcall: calls one exported procedure from the command line.

#include <getopt.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <vector>

#include "host/argument.h"
#include "host/callframe.h"
#include "host/library.h"
#include "host/procedures.h"

namespace {

using namespace host;

enum Exit { SUCCEEDED = 0, FAILED = 1, NOT_CALLED = 2 };

// The connection number of every call: a process makes one.
constexpr std::int32_t connection = 1;

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

struct Options {
    std::string library;
    std::uint32_t piece = CallFrame::default_piece;
    const Procedure* procedure = nullptr;
    std::vector<std::string> arguments;
};

int complain(const std::string& what) {
    fprintf(stderr, "xpcall: %s\n", what.c_str());
    return NOT_CALLED;
}

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

bool read_piece_size(const char* text, std::uint32_t& piece) {
    const char* end = text + strlen(text);
    const auto parsed = std::from_chars(text, end, piece);
    return parsed.ec == std::errc() && parsed.ptr == end && piece > 0;
}

// True when there is a call to make; otherwise `status` is the exit status.
bool read_command_line(int argc, char** argv, Options& options, int& status) {
    const option known[] = {{"lib", required_argument, nullptr, 'l'},
                            {"piece", required_argument, nullptr, 'p'},
                            {"list", no_argument, nullptr, 'L'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
    status = NOT_CALLED;
    // "+": what follows the procedure's name is its own, dashes and all.
    for (int found = 0; (found = getopt_long(argc, argv, "+h", known, nullptr)) != -1;) {
        switch (found) {
        case 'l':
            options.library = optarg;
            break;
        case 'p':
            if (read_piece_size(optarg, options.piece)) break;
            complain("--piece takes a number of bytes from 1 up, not " + std::string(optarg));
            return false;
        case 'L':
            list_procedures();
            status = SUCCEEDED;
            return false;
        case 'h':
            fputs(usage, stdout);
            status = SUCCEEDED;
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
        complain("there is no procedure " + std::string(argv[optind]) +
                 "; xpcall --list shows all of them");
        return false;
    }
    options.arguments.assign(argv + optind + 1, argv + argc);
    return true;
}

// Gives the frame its arguments, some of which `files` lends to it, and notes which parameters were
// asked for with "out".
bool give_arguments(CallFrame& frame, const Options& options, std::deque<FileBytes>& files,
                    std::vector<bool>& asked) {
    const Procedure& procedure = *options.procedure;
    asked.resize(procedure.parameter_count() + 1);
    for (std::uint32_t number = 1; number <= options.arguments.size(); ++number) {
        const std::string& text = options.arguments[number - 1];
        const bool is_out = number <= procedure.parameter_count() &&
                            procedure.parameter(number).direction == Direction::Out;
        std::string error;
        if (is_out && text == "out") {
            asked[number] = true;
        } else if (is_out || text == "out") {
            complain("argument " + std::to_string(number) + " of " + std::string(procedure.name) +
                     (is_out ? " is an OUT parameter; write out in its place"
                             : " is not an OUT parameter; give a value, or text:out for the word"));
            return false;
        } else if (!give_argument(frame, number, text, files.emplace_back(), error)) {
            complain(error);
            return false;
        }
    }
    return true;
}

// The call that a signal cancels.
std::atomic<CallFrame*> running{nullptr};

void cancel_running(int signal_number) {
    CallFrame* frame = running.load();
    // Nothing left to cancel, or it did not help: the signal does what it always does.
    if (frame == nullptr || frame->cancelled()) {
        signal(signal_number, SIG_DFL);
        raise(signal_number);
        return;
    }
    frame->cancel();
}

// SA_RESTART, because a procedure that waits for its command gives up when the wait is interrupted.
void handle_signals() {
    struct sigaction action {};
    action.sa_handler = cancel_running;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        // What the program was started to ignore stays ignored.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

// Standard output for the pieces of a binary result.
struct Output {
    std::uint64_t written = 0;
    char last = '\n';
    int failure = 0;  // errno

    bool write_piece(const void* data, std::uint32_t length) {
        const auto* at = static_cast<const char*>(data);
        for (std::size_t left = length; left > 0;) {
            const ssize_t count = write(STDOUT_FILENO, at, left);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) {
                failure = errno;
                return false;
            }
            at += count;
            left -= static_cast<std::size_t>(count);
        }
        written += length;
        if (length > 0) last = at[-1];
        return true;
    }
};

int report_nothing(const Procedure& procedure, const char* nothing) {
    fprintf(stderr, "xpcall: %s gave %s: %s\n", procedure.name.data(), nothing,
            procedure.otherwise.data());
    return FAILED;
}

int report_bytes(const CallFrame& frame, const Procedure& procedure, const Output& output) {
    if (output.written > 0 && output.last != '\n' && isatty(STDOUT_FILENO) != 0)
        fputc('\n', stderr);
    if (output.failure != 0) {
        complain(std::string("cannot write to standard output: ") + strerror(output.failure));
        return FAILED;
    }
    if (frame.result() && frame.result()->is_null()) {
        if (!frame.cancelled()) return report_nothing(procedure, "NULL");
        fputs("cancelled\n", stderr);
        return FAILED;
    }
    fprintf(stderr, "%llu bytes\n", static_cast<unsigned long long>(output.written));
    return SUCCEEDED;
}

int report_status(const CallFrame& frame, const Procedure& procedure) {
    const Value result = frame.result().value_or(Value::null(EXTFN_TYPE_INT32));
    if (result.is_null()) return report_nothing(procedure, "no status");
    const std::int32_t status = result.as_int().value_or(FAILED);
    if (status != 0 && frame.cancelled()) fputs("cancelled\n", stderr);
    printf("status %d: %s\n", status, explain_status(procedure, status).data());
    return status == 0 ? SUCCEEDED : FAILED;
}

// Such a procedure has succeeded when it filled at least one value.
int report_outs(const CallFrame& frame, const Procedure& procedure,
                const std::vector<bool>& asked) {
    bool filled = false;
    for (std::uint32_t number = 1; number <= procedure.parameter_count(); ++number) {
        const bool is_out = procedure.parameter(number).direction == Direction::Out;
        const bool has_value = is_out && frame.out(number) && !frame.out(number)->is_null();
        const std::string name = procedure.parameter_name(number);
        filled = filled || has_value;
        if (has_value) {
            printf("%s = ", name.c_str());
            fwrite(frame.out(number)->bytes->data(), 1, frame.out(number)->bytes->size(), stdout);
            putchar('\n');
        } else if (asked[number]) {
            printf("%s is NULL\n", name.c_str());
        }
    }
    return filled ? SUCCEEDED : report_nothing(procedure, "no value");
}

int report(const CallFrame& frame, const Procedure& procedure, const std::vector<bool>& asked,
           const Output& output) {
    switch (procedure.result) {
    case Result::Bytes:
        return report_bytes(frame, procedure, output);
    case Result::Status:
        return report_status(frame, procedure);
    case Result::None:
        break;
    }
    return report_outs(frame, procedure, asked);
}

int run(const Options& options) {
    std::string error;
    const Library library =
        Library::load(options.library, error, "build it with tools/demo or name it with --lib");
    if (!library.loaded()) return complain(error);

    const Procedure& procedure = *options.procedure;
    std::deque<FileBytes> files;
    CallFrame frame(library, procedure, connection, options.piece);
    std::vector<bool> asked;
    if (!give_arguments(frame, options, files, asked)) return NOT_CALLED;

    Output output;
    if (procedure.result == Result::Bytes)
        frame.on_result = [&](const void* data, std::uint32_t length, bool) {
            return !frame.cancelled() && output.write_piece(data, length);
        };
    running = &frame;
    handle_signals();
    const bool called = frame.call(error);
    running = nullptr;
    if (!called) return complain(error);

    const int status = report(frame, procedure, asked, output);
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    complain(std::string("cannot write to standard output: ") + strerror(errno));
    return FAILED;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int status = SUCCEEDED;
    if (!read_command_line(argc, argv, options, status)) return status;
    return run(options);
}
