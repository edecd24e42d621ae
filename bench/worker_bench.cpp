// What it costs to run the procedures in a worker: a small call, a large file, mail messages, each
// beside the same call in this process; and the memory of a worker at rest.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/paired.h"
#include "bench/smtpsink.h"
#include "host/callframe.h"
#include "host/library.h"
#include "host/processstate.h"
#include "host/worker/workerclient.h"
#include "tests/scratch.h"

namespace {

using namespace host;

constexpr std::size_t file_size = std::size_t{256} << 20;
constexpr int small_calls = 2000;
constexpr int messages = 300;
constexpr int rounds = 9;

void require(bool condition) {
    if (!condition) std::abort();
}

/// Makes a call that must succeed; gives the bytes of its result.
std::uint64_t call(const Engine& engine, const char* procedure,
                   const std::vector<std::string>& arguments, std::uint32_t first = 1) {
    CallFrame frame(engine, *find_procedure(procedure), 1);
    std::string error;
    for (std::uint32_t i = 0; i < arguments.size(); ++i)
        require(frame.set_argument(first + i, Value::text(arguments[i], EXTFN_TYPE_STRING), error));
    std::uint64_t read = 0;
    if (find_procedure(procedure)->result == Result::Bytes)
        frame.on_result = [&read](const void*, std::uint32_t length, bool) {
            read += length;
            return true;
        };
    require(frame.call(error));
    require(find_procedure(procedure)->result != Result::Status || frame.result()->as_int() == 0);
    return read;
}

double microseconds(const Engine& engine) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < small_calls; ++i)
        call(engine, "xp_sprintf", {"%s and %s", "salt", "pepper"}, 2);
    const std::chrono::duration<double, std::micro> spent =
        std::chrono::steady_clock::now() - start;
    return spent.count() / small_calls;
}

void compare_small_calls(const Engine& worker, const Engine& here) {
    std::vector<double> more, alone;
    for (int i = 0; i < rounds; ++i) {
        alone.push_back(microseconds(here));
        more.push_back(microseconds(worker) - alone.back());
    }
    std::sort(more.begin(), more.end());
    std::sort(alone.begin(), alone.end());
    std::printf("xp_sprintf: %.1f us more than %.1f us in this process (30 are allowed)\n",
                more[rounds / 2], alone[rounds / 2]);
}

/// A mail server in a process of its own.
class Sink {
  public:
    Sink() : _pid(fork()) {
        if (_pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _sink.run();
    }
    ~Sink() {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    Sink(const Sink&) = delete;
    [[nodiscard]] std::string port() const { return std::to_string(_sink.port()); }

  private:
    SMTPSink _sink;
    const pid_t _pid;
};

void send_messages(const Engine& engine) {
    static const std::string body(10000, 't');
    for (int i = 0; i < messages; ++i)
        call(engine, "xp_sendmail", {"bob@b.test", "Hi", "", "", "", body});
}

long resident_kib(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;)
        if (long kib = 0; word == "VmRSS:" && status >> kib) return kib;
    return 0;
}

long resident_below(pid_t parent) {
    long sum = 0;
    for_each_process([&](pid_t pid) {
        if (state_of(pid).parent == parent) sum += resident_kib(pid) + resident_below(pid);
    });
    return sum;
}

}  // namespace

int main() {
    std::string error;
    const Library here = Library::load(PRODUCT, error);
    require(here.loaded());
    const WorkerClient worker({PRODUCT, WORKER_PROGRAM});

    compare_small_calls(worker, here);
    std::printf("a worker at rest: %ld KiB resident in its two processes (6144 are allowed)\n",
                resident_below(getpid()));

    const PairedBenchmark paired(rounds);
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", std::string(file_size, 'q'));
    const auto read = [&](const Engine& engine) {
        require(call(engine, "xp_read_file", {file}) == file_size);
    };
    paired.run(
        "xp_read_file of 256 MiB / in this process", 0.5, [&] { read(worker); },
        [&] { read(here); });

    const Sink sink;
    for (const Engine* engine :
         {static_cast<const Engine*>(&worker), static_cast<const Engine*>(&here)})
        call(*engine, "xp_startsmtp", {"ann@a.test", "127.0.0.1", sink.port()});
    paired.run(
        "mail messages / in this process", 0.9, [&] { send_messages(worker); },
        [&] { send_messages(here); });
}
