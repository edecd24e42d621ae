// What it costs to run the procedures in a worker: a small call, a large file, mail messages, each
// beside the same call in this process; and the memory of a worker at rest.
//
// All processes are bound to processors, because else the figures are the scheduler's: first to one
// that they share, where every switch between them is counted, then host and worker to one each.
// With mail host and worker share one; the server is on the same, where its answers cost nothing
// but a switch, or on another, as a mail server is.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "bench/paired.h"
#include "bench/sinkprocess.h"
#include "host/callframe.h"
#include "host/library.h"
#include "host/processstate.h"
#include "host/worker/workerclient.h"
#include "tests/scratch.h"

namespace {

using namespace host;

constexpr std::size_t read_size = std::size_t{256} << 20;
constexpr std::size_t written_size = std::size_t{64} << 20;
constexpr int small_calls = 2000;
constexpr int messages = 300;
constexpr int rounds = 9;

void require(bool condition) {
    if (!condition) std::abort();
}

struct Argument {
    const char* parameter;
    std::string_view text;
};

/// Makes a call that must succeed; gives the bytes of its result.
std::uint64_t call(const Engine& engine, const char* name, const std::vector<Argument>& arguments) {
    const Procedure& procedure = *find_procedure(name);
    CallFrame frame(engine, procedure, 1);
    std::string error;
    for (const Argument& argument : arguments)
        require(frame.lend_argument(procedure.parameter_number(argument.parameter), argument.text,
                                    error));
    std::uint64_t read = 0;
    if (procedure.result == Result::Bytes)
        frame.on_result = [&read](const void*, std::uint32_t length, bool) {
            read += length;
            return true;
        };
    require(frame.call(error));
    require(procedure.result != Result::Status || frame.result()->as_int() == 0);
    return read;
}

double microseconds(const Engine& engine) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < small_calls; ++i)
        call(engine, "xp_sprintf",
             {{"format", "%s and %s"}, {"value1", "salt"}, {"value2", "pepper"}});
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

void compare_files(const Engine& worker, const Engine& here, const std::string& place) {
    const PairedBenchmark paired(rounds);
    const ScratchFolder folder;
    const std::string contents(written_size, 'q');
    const std::string copy = folder.file("copy");
    const std::string file = folder.file("file");
    {
        std::ofstream whole(file, std::ios::binary);
        for (std::size_t i = 0; i < read_size / written_size; ++i) whole << contents;
    }
    const auto read = [&](const Engine& engine) {
        require(call(engine, "xp_read_file", {{"name", file}}) == read_size);
    };
    const auto write = [&](const Engine& engine) {
        call(engine, "xp_write_file", {{"name", copy}, {"contents", contents}});
    };
    paired.run(("xp_read_file of 256 MiB, " + place).c_str(), 0.5, [&] { read(worker); },
               [&] { read(here); });
    paired.run(("xp_write_file of 64 MiB, " + place).c_str(), 0, [&] { write(worker); },
               [&] { write(here); });
}

/// The worker runs on CPU `cpu`, this process on CPU 0.
void compare_on(int cpu, const Engine& here, const std::string& place) {
    const WorkerClient worker({PRODUCT, WORKER_PROGRAM});
    std::printf("-- %s\n", place.c_str());
    use_cpu(cpu);
    microseconds(worker);
    use_cpu(0);
    compare_small_calls(worker, here);
    std::printf("a worker at rest: %ld KiB resident in its two processes (6144 are allowed)\n",
                resident_below(getpid()));
    compare_files(worker, here, place);
}

void start_session(const Engine& engine, int port, const std::string& trusted) {
    const std::string port_text = std::to_string(port);
    std::vector<Argument> arguments = {
        {"sender", "ann@a.test"}, {"host", "127.0.0.1"}, {"port", port_text}};
    if (!trusted.empty())
        arguments.insert(arguments.end(), {{"trusted_cert", trusted}, {"cert_name", ""}});
    call(engine, "xp_startsmtp", arguments);
}

/// The server runs on CPU `cpu`, host and worker on CPU 0.
void compare_messages(int cpu, const Engine& here, const char* label,
                      const Certificate* certificate, const std::string& trusted) {
    const SinkProcess sink(certificate, cpu);
    const WorkerClient worker({PRODUCT, WORKER_PROGRAM});
    static const std::string body(10000, 't');
    const auto send = [](const Engine& engine) {
        for (int i = 0; i < messages; ++i)
            call(engine, "xp_sendmail",
                 {{"recipient", "bob@b.test"}, {"subject", "Hi"}, {"message", body}});
    };
    start_session(worker, sink.port, trusted);
    start_session(here, sink.port, trusted);
    PairedBenchmark(rounds).run(
        label, 0.9, [&] { send(worker); }, [&] { send(here); });
    call(here, "xp_stopsmtp", {});
}

}  // namespace

int main() {
    std::string error;
    const Library here = Library::load(PRODUCT, error);
    require(here.loaded());
    const int last = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)) - 1;
    compare_on(0, here, "on one processor");
    if (last > 0) compare_on(last, here, "on a processor each");

    const Certificate certificate({});
    const ScratchFolder folder;
    const std::string trusted = folder.file_with("certificate.pem", certificate.pem());
    for (const int cpu : {0, last}) {
        const std::string place =
            cpu == 0 ? "its server on the same processor" : "its server on another";
        const auto compare = [&](const std::string& how, const Certificate* with) {
            compare_messages(cpu, here, (how + ", " + place).c_str(), with,
                             with != nullptr ? trusted : "");
        };
        compare("messages of 10 KB, clear", nullptr);
        compare("messages of 10 KB, STARTTLS", &certificate);
        if (last == 0) break;
    }
}
