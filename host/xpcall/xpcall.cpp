// xpcall: calls exported procedures from the command line.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "host/mailsession.h"
#include "host/startup.h"
#include "host/xpcall/arguments.h"
#include "host/xpcall/options.h"
#include "host/xpcall/report.h"

namespace {

using namespace host;

// The connection number of every call: they share one mail session.
constexpr std::int32_t connection = 1;

// Gives the frame its arguments, some of which `files` lends to it, and notes which parameters were
// asked for with "out".
bool give_arguments(CallFrame& frame, const XpcallCall& call, std::deque<FileBytes>& files,
                    std::vector<bool>& asked) {
    const Procedure& procedure = *call.procedure;
    asked.resize(procedure.parameter_count() + 1);
    for (std::uint32_t number = 1; number <= call.arguments.size(); ++number) {
        const std::string& text = call.arguments[number - 1];
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
    sigfillset(&action.sa_mask);  // a second signal finds the first one's work done
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        // What the program was started to ignore stays ignored.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

int make_call(const Library& library, const XpcallCall& call, std::uint32_t piece) {
    const Procedure& procedure = *call.procedure;
    std::deque<FileBytes> files;
    CallFrame frame(library, procedure, connection, piece);
    std::vector<bool> asked;
    if (!give_arguments(frame, call, files, asked)) return EXIT_NOT_CALLED;

    Output output;
    if (procedure.result == Result::Bytes)
        frame.on_result = [&output](const void* data, std::uint32_t length, bool) {
            return output.write_piece(data, length);
        };
    std::string error;
    note_mail_call(procedure, frame, connection);
    // A signal ends any other call with the process.
    if (procedure.cancellable) {
        running = &frame;
        handle_signals();
    }
    const bool called = frame.call(error);
    running = nullptr;
    if (!called) {
        complain(error);
        return frame.result() ? EXIT_FAILED : EXIT_NOT_CALLED;
    }
    if (!frame.warning().empty()) fprintf(stderr, "xpcall: warning: %s\n", frame.warning().c_str());

    const int status = report(frame, procedure, asked, output);
    return frame.cancelled() ? EXIT_FAILED : status;
}

// At its end the mail sessions stop that calls have started.
class MailSessions {
  public:
    explicit MailSessions(const Library& library) : _library(library) {}
    MailSessions(const MailSessions&) = delete;
    MailSessions& operator=(const MailSessions&) = delete;
    ~MailSessions() { end_mail_sessions(_library, connection); }

  private:
    const Library& _library;
};

// What a call handed back has its place before the output of a command that the next one runs.
int flush_output(int status) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    complain(std::string("cannot write to standard output: ") + strerror(errno));
    return EXIT_FAILED;
}

int run(const XpcallOptions& options) {
    std::string error;
    const Library library =
        Library::load(options.library, error, "build it with tools/demo or name it with --lib");
    if (!library.loaded()) return complain(error);

    const MailSessions stopped_at_the_end(library);
    for (const XpcallCall& call : options.calls) {
        const int status = flush_output(make_call(library, call, options.piece));
        if (status != EXIT_SUCCEEDED) return status;
    }
    return EXIT_SUCCEEDED;
}

}  // namespace

int main(int argc, char** argv) {
    start_program();
    XpcallOptions options;
    int status = EXIT_SUCCEEDED;
    if (!read_command_line(argc, argv, options, status)) return flush_output(status);
    return run(options);
}
