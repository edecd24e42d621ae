#include "host/worker/workerprocess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/descendants.h"
#include "host/worker/guard.h"
#include "host/worker/title.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

struct SocketPair {
    Descriptor host;
    Descriptor worker;

    SocketPair() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
        host = above_standard(Descriptor(ends[0]));
        worker = above_standard(Descriptor(ends[1]));
    }
    [[nodiscard]] bool is_open() const { return host.is_open() && worker.is_open(); }
};

// posix_spawn's two records.
class SpawnPlan {
  public:
    SpawnPlan(int socket, ProcessGroup group) {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigdefault(&attributes, &all);
        // A cancel that comes before the worker has got ready waits in place of ending it.
        posix_spawnattr_setsigmask(&attributes, &all);
        const int own_group = group == ProcessGroup::Own ? POSIX_SPAWN_SETPGROUP : 0;
        posix_spawnattr_setflags(
            &attributes,
            static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | own_group));
        complete = posix_spawn_file_actions_adddup2(&actions, socket, worker_socket) == 0 &&
                   posix_spawn_file_actions_addclosefrom_np(&actions, worker_socket + 1) == 0;
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
    bool complete = false;
};

std::string words_of(int status) {
    if (WIFEXITED(status))
        return "has ended with exit status " + std::to_string(WEXITSTATUS(status));
    const int number = WTERMSIG(status);
    const char* name = sigabbrev_np(number);
    return "was ended by SIG" + (name != nullptr ? std::string(name) : std::to_string(number)) +
           " (" + strsignal(number) + ")";
}

}  // namespace

bool WorkerProcess::start(const std::string& path, ProcessGroup group, std::string& error) {
    SocketPair ends;
    const SpawnPlan plan(ends.worker.number(), group);
    std::string word = "quorel-worker";
    word.resize(title_room, ' ');
    char* arguments[] = {word.data(), nullptr};
    int failure = errno;
    if (ends.is_open() && plan.complete)
        failure =
            posix_spawn(&_pid, path.c_str(), &plan.actions, &plan.attributes, arguments, environ);
    if (!ends.is_open() || !plan.complete || failure != 0) {
        _pid = 0;
        error = "cannot start " + path + ": " + strerror(failure);
        return false;
    }
    _host = getpid();
    _held = HeldProcess(_pid, _host);
    _socket = std::move(ends.host);
    return true;
}

// A copy of the host that fork made has its descriptors, and nothing to say to the worker.
bool WorkerProcess::_is_ours() const {
    return started() && _host == getpid();
}

bool WorkerProcess::is_idle() const {
    if (!_is_ours()) return false;
    // Not poll(), which a signal of the host's interrupts even where it does not wait.
    char next = 0;
    return recv(_socket.number(), &next, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

void WorkerProcess::cancel(int call) const {
    static_cast<void>(_held.queue(cancel_signal, call));
}

// True once it was waited for, or somebody else has: a host that ignores SIGCHLD.
bool WorkerProcess::_wait(std::chrono::milliseconds patience, int& status) {
    constexpr int interval = 1;
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        const pid_t ended = waitpid(_pid, &status, WNOHANG);
        if (ended == _pid || (ended < 0 && errno == ECHILD)) {
            if (ended < 0) status = -1;
            return true;
        }
        if (Clock::now() >= deadline) return false;
        poll(nullptr, 0, interval);
    }
}

std::string WorkerProcess::end(std::chrono::milliseconds patience) {
    // What cannot be killed at once hangs in the kernel. It is not waited for.
    constexpr std::chrono::milliseconds longest_kill(500);
    int status = -1;
    _socket.close();
    if (_is_ours() && !_wait(patience, status)) {
        end_descendants(_held);
        static_cast<void>(_held.pid() > 0 ? _held.send(SIGKILL) : kill(_pid, SIGKILL) == 0);
        if (!_wait(longest_kill, status)) status = -1;
    }
    _pid = 0;
    _held = {};
    return status == -1 ? "has ended" : words_of(status);
}

}  // namespace host
