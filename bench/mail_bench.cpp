// Mail against a server that only answers, in clear text and over STARTTLS: messages a second over
// one open session, and the speed of a large attachment, each as the median of the ratios to peers
// that are measured in turn with it.
//
// Peers: a bare loop that sends prepared bytes, and reads and encodes files; Postfix's smtp-source,
// unpacked into build/postfix; a libcurl client that re-uses its connection (curl_mail); Python's
// smtplib. What is not there is left out, with a note. Only libcurl and the bare loop know TLS, the
// latter with the OpenSSL that this build's provider has.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "bench/bareclient.h"
#include "bench/figures.h"
#include "bench/mailsession.h"
#include "bench/sinkprocess.h"
#include "tests/scratch.h"

namespace {

constexpr int rounds = 7;

/// What is compared: everybody in clear text, or everybody over STARTTLS.
struct Setting {
    bool secure;
    const Certificate& certificate;  // the server's
    std::string certificate_file;

    /// The server's certificate, if it has one.
    [[nodiscard]] const Certificate* offered() const { return secure ? &certificate : nullptr; }
    [[nodiscard]] std::string trusted() const { return secure ? certificate_file : ""; }
    [[nodiscard]] std::string label(const char* work) const {
        return (secure ? "STARTTLS, " : "clear, ") + std::string(work);
    }
};

/// The processor time of this process and of those that it has waited for, which the server's is
/// not.
double cpu_seconds() {
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage = {};
        getrusage(who, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    return sum;
}

struct Times {
    double wall, cpu;
};

Times seconds(const std::function<void()>& work) {
    const double cpu = cpu_seconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), cpu_seconds() - cpu};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Someone who does `amount` of the work in a call.
struct Contender {
    std::string name;
    double amount;
    std::function<void()> work;
    double least = 0;     // how many times as fast this library is to be
    bool by_cpu = false;  // by its own CPU time, where the clock depends on the scheduler
};

// `terms` says what is compared.
void compare(const char* terms, const char* unit, const Contender& own,
             const std::vector<Contender>& peers) {
    std::printf("%s\nA ratio is this library's rate divided by the peer's, by the clock and by the "
                "client's CPU time, the\nmedian of %d pairs.\n",
                terms, rounds);
    for (const Contender& peer : peers) {
        std::vector<double> own_rates, peer_rates, ratios, cpu_ratios;
        for (int round = 0; round < rounds; ++round) {
            const Times own_times = seconds(own.work);
            const Times peer_times = seconds(peer.work);
            own_rates.push_back(own.amount / own_times.wall);
            peer_rates.push_back(peer.amount / peer_times.wall);
            ratios.push_back(own_rates.back() / peer_rates.back());
            cpu_ratios.push_back(own.amount / own_times.cpu / (peer.amount / peer_times.cpu));
        }
        const double ratio = median(ratios), cpu_ratio = median(cpu_ratios);
        std::printf("%s against %s: %.2fx (%.0f and %.0f %s), CPU %.2fx\n", own.name.c_str(),
                    peer.name.c_str(), ratio, median(own_rates), median(peer_rates), unit,
                    cpu_ratio);
        std::fflush(stdout);
        const std::string label = own.name + " / " + peer.name;
        record_figure((label + (peer.by_cpu ? ", CPU" : "")).c_str(),
                      peer.by_cpu ? cpu_ratio : ratio, peer.least);
    }
}

bool exists(const std::string& path) {
    const bool found = access(path.c_str(), X_OK) == 0;
    if (!found) std::printf("%s is missing; left out\n", path.c_str());
    return found;
}

std::function<void()> command(const std::string& line) {
    return [line] {
        if (std::system(line.c_str()) != 0) std::abort();
    };
}

/// A libcurl of this build's word size, where its package could be unpacked.
void add_curl(std::vector<Contender>& peers, const Setting& setting, double amount, double least,
              const std::string& arguments) {
    const std::string program = CURL_MAIL;
    if (!exists(program)) return;
    const std::string tls = setting.secure ? " --tls " + shell_word(setting.certificate_file) : "";
    peers.push_back(
        {"libcurl", amount, command(shell_word(program) + tls + " " + arguments), least});
}

void compare_messages(const std::string& root, const Setting& setting) {
    constexpr int count = 20000;
    constexpr int count_of_slow = 2000;
    use_cpu(0);
    const SinkProcess sink(setting.offered(), 0);
    MailSession session(sink.port, setting.trusted());
    BareClient bare(sink.port, setting.secure);
    BareClient impatient(sink.port, setting.secure, false);
    const std::string body(1024, 'b');
    const std::string port = std::to_string(sink.port);
    std::vector<Contender> peers = {{"a bare loop", count,
                                     [&] {
                                         for (int i = 0; i < count; ++i) bare.send_text(body);
                                     },
                                     setting.secure ? 0.9 : 0.95, true},
                                    {"a bare loop with time-outs", count,
                                     [&] {
                                         for (int i = 0; i < count; ++i) impatient.send_text(body);
                                     },
                                     0.9, true}};
    const std::string postfix = root + "/build/postfix/usr/";
    if (!setting.secure && exists(postfix + "sbin/smtp-source")) {
        peers.push_back({"smtp-source", count,
                         command("LD_LIBRARY_PATH=" + shell_word(postfix + "lib/postfix") + " " +
                                 shell_word(postfix + "sbin/smtp-source") +
                                 " -d -s 1 -l 1024 -f ann@a.test -t bob@b.test -m " +
                                 std::to_string(count) + " 127.0.0.1:" + port),
                         1.2});
    }
    add_curl(peers, setting, count, 1.6, port + " " + std::to_string(count));
    if (!setting.secure) {
        peers.push_back({"smtplib", count_of_slow,
                         command("/usr/bin/python3 " + shell_word(root + "/bench/smtplib_mail.py") +
                                 " " + port + " " + std::to_string(count_of_slow))});
    }
    compare("Messages of 1 KB to one recipient; client and server share a CPU. This library and "
            "the bare "
            "loop keep\ntheir connection open from round to round; the other peers are programs "
            "that are "
            "started for each\nround and send its messages over one connection.",
            "messages/s",
            {setting.label("messages"), count,
             [&] {
                 for (int i = 0; i < count; ++i) session.send(body, "");
             }},
            peers);
}

std::string noise(size_t size) {
    std::string bytes(size, '\0');
    unsigned state = 1;
    for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

void compare_small_attachments(const Setting& setting) {
    constexpr int count = 10000;
    const ScratchFolder folder;
    const std::string path = folder.file_with("attached", noise(16 << 10));
    use_cpu(0);
    const SinkProcess sink(setting.offered(), 0);
    MailSession session(sink.port, setting.trusted());
    BareClient bare(sink.port, setting.secure);
    compare(
        "Attachments of 16 KiB; client and server share a CPU. The bare loop is the same build's "
        "encoder and\nnothing else.",
        "messages/s",
        {setting.label("attachments of 16 KiB"), count,
         [&] {
             for (int i = 0; i < count; ++i) session.send("text", path);
         }},
        {{"a bare loop", count,
          [&] {
              for (int i = 0; i < count; ++i) bare.send_file(path.c_str());
          },
          0.95, true}});
}

void compare_large_attachments(const Setting& setting) {
    constexpr size_t megabytes = 64;
    const ScratchFolder folder;
    const std::string path = folder.file_with("attached", noise(megabytes << 20));
    use_cpu(0);
    const SinkProcess sink(setting.offered(), 1);
    MailSession session(sink.port, setting.trusted());
    BareClient bare(sink.port, setting.secure);
    std::vector<Contender> peers = {
        {"a bare loop", megabytes, [&] { bare.send_file(path.c_str()); }, 0.95, true}};
    add_curl(peers, setting, megabytes, setting.secure ? 10 : 30,
             std::to_string(sink.port) + " 1 " + shell_word(path));
    compare("An attachment of 64 MiB, encoded and sent; client and server have a CPU each.", "MB/s",
            {setting.label("attachment of 64 MiB"), megabytes, [&] { session.send("text", path); }},
            peers);
}

}  // namespace

int main() {
    const std::string root = QUOREL_ROOT;
    const Certificate certificate({});
    const ScratchFolder folder;
    const std::string file = folder.file_with("certificate.pem", certificate.pem());
    for (const bool secure : {false, true}) {
        std::printf("%s\n", secure ? "-- STARTTLS" : "-- clear text");
        const Setting setting = {secure, certificate, file};
        compare_messages(root, setting);
        compare_small_attachments(setting);
        compare_large_attachments(setting);
    }
    return 0;
}
