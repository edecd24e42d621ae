// Mail against a server that only answers: messages a second over one open session, and the speed
// of a large attachment, each as the median of the ratios to peers that are measured in turn with
// it.
//
// Peers: Postfix's smtp-source, unpacked into build/postfix; a libcurl client that re-uses its
// connection (curl_mail, part of the 64-bit build); Python's smtplib; and for the attachment a bare
// loop that reads, encodes and sends. What is not there is left out, with a note.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "netlib/netsmtp.h"
#include "netlib/netutil.h"
#include "tests/netlib/smtpsink.h"
#include "utils/etc/base64.h"

namespace {

constexpr int rounds = 7;

void use_cpu(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// The plain server in a process of its own, on one CPU.
class Sink {
  public:
    explicit Sink(int cpu) {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            use_cpu(cpu);
            SMTPSink sink;
            const int own_port = sink.port();
            if (write(ends[1], &own_port, sizeof own_port) != sizeof own_port) std::abort();
            sink.run();
        }
        if (read(ends[0], &port, sizeof port) != sizeof port) std::abort();
        close(ends[0]);
        close(ends[1]);
    }
    ~Sink() {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    Sink(const Sink&) = delete;

    int port = 0;

  private:
    pid_t _pid;
};

/// The client with an open session.
class Session {
  public:
    explicit Session(int port) {
        if (_client.Connect("ann@a.test", nullptr, "127.0.0.1", port, 60, nullptr, nullptr) != 0)
            std::abort();
    }
    ~Session() { _client.Disconnect(); }

    void send(const char* body, const char* attachment) {
        const char* to[] = {"bob@b.test"};
        if (_client.SendMessage("Hi", body, to, 1, nullptr, 0, nullptr, 0, attachment, nullptr) !=
            0)
            std::abort();
    }

  private:
    SMTPClient _client;
};

double seconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Someone who does `amount` of the work in a call.
struct Contender {
    const char* name;
    double amount;
    std::function<void()> work;
};

// `terms` says what is compared.
void compare(const char* terms, const char* unit, const Contender& own,
             const std::vector<Contender>& peers) {
    std::printf(
        "%s\nA ratio is this library's rate divided by the peer's, the median of %d pairs.\n",
        terms, rounds);
    for (const Contender& peer : peers) {
        std::vector<double> own_rates, peer_rates, ratios;
        for (int round = 0; round < rounds; ++round) {
            own_rates.push_back(own.amount / seconds(own.work));
            peer_rates.push_back(peer.amount / seconds(peer.work));
            ratios.push_back(own_rates.back() / peer_rates.back());
        }
        std::printf("%s against %s: %.2fx (%.0f and %.0f %s)\n", own.name, peer.name,
                    median(ratios), median(own_rates), median(peer_rates), unit);
        std::fflush(stdout);
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

void compare_messages(const std::string& root) {
    constexpr int count = 20000;
    constexpr int count_of_slow = 2000;
    use_cpu(0);
    const Sink sink(0);
    Session session(sink.port);
    const std::string body(1024, 'b');
    const std::string port = std::to_string(sink.port);
    std::vector<Contender> peers;
    const std::string source = root + "/build/postfix/usr/sbin/smtp-source";
    if (exists(source)) {
        peers.push_back({"smtp-source", count,
                         command("LD_LIBRARY_PATH=" + root + "/build/postfix/usr/lib/postfix " +
                                 source + " -d -s 1 -l 1024 -f ann@a.test -t bob@b.test -m " +
                                 std::to_string(count) + " 127.0.0.1:" + port)});
    }
    const std::string curl = root + "/build/release64/bench/curl_mail";
    if (exists(curl))
        peers.push_back(
            {"libcurl", count, command(curl + " " + port + " " + std::to_string(count))});
    peers.push_back({"smtplib", count_of_slow,
                     command("/usr/bin/python3 " + root + "/bench/smtplib_mail.py " + port + " " +
                             std::to_string(count_of_slow))});
    compare(
        "Messages of 1 KB to one recipient; client and server share a CPU. This library keeps its "
        "session\nopen from round to round; the peers are programs of 64 bits that are started "
        "for each round and\nsend its messages over one connection.",
        "messages/s",
        {"messages", count,
         [&] {
             for (int i = 0; i < count; ++i) session.send(body.c_str(), nullptr);
         }},
        peers);
}

int connected_to(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in name = {};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(static_cast<uint16_t>(port));
    if (connect(fd, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0) std::abort();
    return fd;
}

void send_all(int fd, const char* bytes, size_t length) {
    while (length > 0) {
        const ssize_t sent = send(fd, bytes, length, MSG_NOSIGNAL);
        if (sent <= 0) std::abort();
        bytes += sent;
        length -= static_cast<size_t>(sent);
    }
}

void converse(int fd, const char* line) {
    char reply[256];
    send_all(fd, line, std::strlen(line));
    if (recv(fd, reply, sizeof reply, 0) <= 0) std::abort();
}

// What any client has to do at least: read, encode, send.
void send_barely(int port, const char* path) {
    constexpr size_t block = 57 * 1150;
    static char bytes[block];
    static char encoded[block * 2];
    const int fd = connected_to(port);
    for (const char* line : {"", "EHLO x\r\n", "MAIL FROM:<a>\r\n", "RCPT TO:<b>\r\n", "DATA\r\n"})
        converse(fd, line);
    const int file = open(path, O_RDONLY);
    for (ssize_t count = 0; (count = read(file, bytes, block)) > 0;) {
        const size_t length = base64_encode(encoded, bytes, static_cast<size_t>(count), 76);
        send_all(fd, encoded, length);
    }
    close(file);
    converse(fd, "\r\n.\r\n");
    close(fd);
}

void compare_attachments(const std::string& root) {
    constexpr size_t megabytes = 64;
    char path[] = "/tmp/quorel-bench-XXXXXX";
    const int file = mkstemp(path);
    std::string megabyte(1 << 20, '\0');
    unsigned state = 1;
    for (char& byte : megabyte)
        byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    for (size_t i = 0; i < megabytes; ++i) {
        if (write(file, megabyte.data(), megabyte.size()) == -1) std::abort();
    }
    close(file);
    use_cpu(0);
    const Sink sink(1);
    Session session(sink.port);
    std::vector<Contender> peers = {
        {"a bare loop", megabytes, [&] { send_barely(sink.port, path); }}};
    const std::string curl = root + "/build/release64/bench/curl_mail";
    if (exists(curl)) {
        peers.push_back(
            {"libcurl", megabytes, command(curl + " " + std::to_string(sink.port) + " 1 " + path)});
    }
    compare(
        "An attachment of 64 MiB, encoded and sent; client and server have a CPU each. The bare "
        "loop is the\nsame build's encoder and nothing else; libcurl is a program of 64 bits, "
        "started for each round.",
        "MB/s", {"attachment of 64 MiB", megabytes, [&] { session.send("text", path); }}, peers);
    unlink(path);
}

}  // namespace

int main() {
    TcpUtil::Init();
    const std::string root = QUOREL_ROOT;
    compare_messages(root);
    compare_attachments(root);
    TcpUtil::Fini();
    return 0;
}
