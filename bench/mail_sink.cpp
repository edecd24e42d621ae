// mail_sink [MILLISECONDS]: the server of bench/smtpsink.h as a program, which may take so long for
// each answer. Prints its port, and ends with its standard input.
//
// mail_sink MILLISECONDS LIBRARY WORKER MESSAGES BYTES: prints instead how many messages a second
// the library gives it over one session, in this process and in a worker.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "bench/smtpsink.h"
#include "host/callframe.h"
#include "host/library.h"
#include "host/worker/workerclient.h"

namespace {

using namespace host;

class SlowSink : public SMTPSink {
  public:
    explicit SlowSink(int milliseconds) : _pause(milliseconds) {}

  private:
    const char* answer(int fd, char verb) override {
        std::this_thread::sleep_for(_pause);
        return SMTPSink::answer(fd, verb);
    }

    const std::chrono::milliseconds _pause;
};

void call(const Engine& engine, const char* procedure, const std::vector<std::string>& arguments) {
    CallFrame frame(engine, *find_procedure(procedure), 1);
    std::string error;
    for (std::uint32_t i = 0; i < arguments.size(); ++i)
        if (!frame.set_argument(i + 1, Value::text(arguments[i], EXTFN_TYPE_STRING), error))
            std::abort();
    if (!frame.call(error) || frame.result()->as_int() != 0) std::abort();
}

double messages_a_second(const Engine& engine, int port, int messages, const std::string& text) {
    call(engine, "xp_startsmtp", {"ann@a.test", "127.0.0.1", std::to_string(port)});
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < messages; ++i)
        call(engine, "xp_sendmail", {"bob@b.test", "Hi", "", "", "", text});
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    call(engine, "xp_stopsmtp", {});
    return messages / took.count();
}

void measure(int port, char** argv) {
    std::string error;
    const int messages = std::atoi(argv[4]);
    const std::string text(static_cast<std::size_t>(std::atoi(argv[5])), 't');
    const Library here = Library::load(argv[2], error);
    if (!here.loaded()) std::abort();
    std::printf("%.0f %.0f\n", messages_a_second(here, port, messages, text),
                messages_a_second(WorkerClient({argv[2], argv[3]}), port, messages, text));
}

void serve_until_end_of_input(SMTPSink& sink) {
    std::printf("%d\n", sink.port());
    std::fflush(stdout);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

}  // namespace

int main(int argc, char** argv) {
    SlowSink sink(argc > 1 ? std::atoi(argv[1]) : 0);
    std::thread server([&sink] { sink.run(); });
    if (argc == 6)
        measure(sink.port(), argv);
    else
        serve_until_end_of_input(sink);
    sink.stop();
    server.join();
}
