// mail_sink: the server of bench/smtpsink.h as a program. Prints its port, and at the end of its
// standard input how many messages it took.
//
// mail_sink LIBRARY WORKER MESSAGES BYTES: prints instead how many messages a second the library
// gives it over one session, in this process and in a worker.

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
    const int messages = std::atoi(argv[3]);
    const std::string text(static_cast<std::size_t>(std::atoi(argv[4])), 't');
    const Library here = Library::load(argv[1], error);
    if (!here.loaded()) std::abort();
    std::printf("%.0f %.0f\n", messages_a_second(here, port, messages, text),
                messages_a_second(WorkerClient({argv[1], argv[2]}), port, messages, text));
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
    SMTPSink sink;
    std::thread server([&sink] { sink.run(); });
    if (argc == 5)
        measure(sink.port(), argv);
    else
        serve_until_end_of_input(sink);
    sink.stop();
    server.join();
    if (argc != 5) std::printf("%ld\n", sink.messages());
}
