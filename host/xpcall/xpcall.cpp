// xpcall: calls exported procedures from the command line.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "host/librarypath.h"
#include "host/mailsession.h"
#include "host/startup.h"
#include "host/worker/openengine.h"
#include "host/xpcall/arguments.h"
#include "host/xpcall/options.h"
#include "host/xpcall/report.h"
#include "host/xpcall/signals.h"

namespace {

using namespace host;

// The connection number of every call: they share one mail session.
constexpr std::int32_t connection = 1;

int make_call(const Engine& engine, const XpcallCall& call, std::uint32_t piece) {
    const Procedure& procedure = *call.procedure;
    std::deque<FileBytes> files;
    CallFrame frame(engine, procedure, connection, piece);
    std::vector<bool> asked;
    std::string error;
    if (!give_arguments(frame, call, files, asked, error)) return complain(error);

    Output output(engine);
    if (procedure.result == Result::Bytes)
        frame.on_result = [&output](const void* data, std::uint32_t length, bool) {
            return output.write_piece(data, length);
        };
    note_mail_call(procedure, frame, connection);
    // A signal ends any other call with the process.
    std::optional<CancelledBySignals> cancellable;
    if (procedure.cancellable || engine.ends_calls()) cancellable.emplace(frame);
    const bool called = frame.call(error);
    cancellable.reset();
    if (!called) {
        complain(error);
        return frame.was_called() ? EXIT_FAILED : EXIT_NOT_CALLED;
    }
    if (!frame.warning().empty()) complain("warning: " + frame.warning());

    const int status = report(frame, procedure, asked, output);
    return frame.cancelled() ? EXIT_FAILED : status;
}

// At its end the mail sessions stop that calls have started.
class MailSessions {
  public:
    explicit MailSessions(std::shared_ptr<const Engine> engine) : _engine(std::move(engine)) {}
    MailSessions(const MailSessions&) = delete;
    MailSessions& operator=(const MailSessions&) = delete;
    ~MailSessions() { end_mail_sessions(_engine, connection); }

  private:
    const std::shared_ptr<const Engine> _engine;
};

// What a call handed back has its place before the output of a command that the next one runs.
int flush_output(int status) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    complain(std::string("cannot write to standard output: ") + strerror(errno));
    return EXIT_FAILED;
}

int run(const XpcallOptions& options) {
    std::string error;
    const std::shared_ptr<const Engine> engine =
        open_engine(options.place, options.library, library_remedy, error);
    if (engine == nullptr) return complain(error);
    engine->set_deadline(options.deadline);

    const MailSessions stopped_at_the_end(engine);
    for (const XpcallCall& call : options.calls) {
        const int status = flush_output(make_call(*engine, call, options.piece));
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
