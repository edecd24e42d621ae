#include "host/commandprocess.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

// All that end_descendants() needs is async-signal-safe: system calls, and conversions of numbers.
namespace {

struct ProcessState {
    pid_t parent = 0;
    bool lives = false;
    std::uint64_t started = 0;
};

template <typename Number>
Number number_at(std::string_view text) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::string_view next_field(std::string_view& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return field;
}

// The fields of /proc/PID/stat, counted as in proc(5), from the third on. The second is a name in
// parentheses, which may hold anything.
ProcessState parse_state(std::string_view stat) {
    constexpr int parent_field = 4;
    constexpr int threads_field = 20;
    constexpr int started_field = 22;
    stat.remove_prefix(std::min(stat.rfind(')') + 2, stat.size()));
    const std::string_view letter = next_field(stat);
    ProcessState state;
    for (int field = parent_field; field <= started_field; ++field) {
        const std::string_view text = next_field(stat);
        if (field == parent_field) state.parent = number_at<pid_t>(text);
        // The first thread of a process may have ended before the others.
        if (field == threads_field) state.lives = letter != "Z" || number_at<int>(text) > 1;
        if (field == started_field) state.started = number_at<std::uint64_t>(text);
    }
    return state;
}

// No parent when there is no such process.
ProcessState state_of(pid_t pid) {
    constexpr std::string_view before = "/proc/";
    constexpr std::string_view behind = "/stat";
    std::array<char, 40> path{};
    char* at = path.data() + before.copy(path.data(), before.size());
    at = std::to_chars(at, path.data() + path.size() - behind.size() - 1, pid).ptr;
    behind.copy(at, behind.size());

    const int file = open(path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    std::array<char, 1024> text{};
    const ssize_t length = read(file, text.data(), text.size());
    close(file);
    return length > 0 ? parse_state({text.data(), static_cast<std::size_t>(length)})
                      : ProcessState{};
}

// readdir() allocates.
template <typename Visit>
void for_each_process(Visit visit) {
    const int folder = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return;
    alignas(dirent64) std::array<char, 4096> entries{};
    ssize_t length = 0;
    while ((length = getdents64(folder, entries.data(), entries.size())) > 0) {
        for (const char* at = entries.data(); at < entries.data() + length;) {
            const auto* entry = reinterpret_cast<const dirent64*>(at);
            if (const auto pid = number_at<pid_t>(entry->d_name); pid > 0) visit(pid);
            at += entry->d_reclen;
        }
    }
    close(folder);
}

// How many children of `parent` live on after their SIGKILL.
int kill_children(pid_t parent) {
    int living = 0;
    for_each_process([&](pid_t pid) {
        const ProcessState state = state_of(pid);
        if (state.parent != parent || !state.lives) return;
        if (HeldProcess(pid, parent).send(SIGKILL)) ++living;
    });
    return living;
}

// True once none of its threads can start a process any more.
bool is_at_rest(pid_t child) {
    siginfo_t change{};
    const int report = WSTOPPED | WEXITED | WNOWAIT | WNOHANG;
    return waitid(P_PID, static_cast<id_t>(child), &change, report) != 0 || change.si_pid == child;
}

std::int64_t milliseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

thread_local bool orphans_stay = false;

void keep_orphans_in_child() {
    if (orphans_stay) prctl(PR_SET_CHILD_SUBREAPER, 1);
}

}  // namespace

OrphansStay::OrphansStay() {
    [[maybe_unused]] static const int registered =
        pthread_atfork(nullptr, nullptr, keep_orphans_in_child);
    orphans_stay = true;
}

OrphansStay::~OrphansStay() {
    orphans_stay = false;
}

// The descriptor first: what is then read of the process is this one's, if it can still be
// signalled afterwards.
HeldProcess::HeldProcess(pid_t pid, pid_t parent) {
    if (pid <= 0) return;
    _pid = pid;
    _descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0U));
    const ProcessState state = state_of(pid);
    _started = state.started;
    if (state.parent != parent) HeldProcess().swap(*this);
}

HeldProcess& HeldProcess::operator=(HeldProcess&& other) noexcept {
    HeldProcess taken(std::move(other));
    swap(taken);
    return *this;
}

HeldProcess::~HeldProcess() {
    if (_descriptor >= 0) close(_descriptor);
}

void HeldProcess::swap(HeldProcess& other) {
    std::swap(_pid, other._pid);
    std::swap(_descriptor, other._descriptor);
    std::swap(_started, other._started);
}

bool HeldProcess::send(int signal_number) const {
    if (_descriptor >= 0)
        return syscall(SYS_pidfd_send_signal, _descriptor, signal_number, nullptr, 0U) == 0;
    if (_pid > 0 && state_of(_pid).started == _started) return kill(_pid, signal_number) == 0;
    errno = ESRCH;
    return false;
}

void end_descendants(const HeldProcess& command) {
    constexpr std::int64_t patience = 500;  // milliseconds
    constexpr int interval = 1;
    const int saved = errno;
    const std::int64_t deadline = milliseconds_now() + patience;
    if (command.send(SIGSTOP) || errno == EPERM) {
        for (;;) {
            const bool at_rest = is_at_rest(command.pid());
            if (kill_children(command.pid()) == 0 && at_rest) break;
            if (milliseconds_now() >= deadline) break;
            poll(nullptr, 0, interval);
        }
    }
    errno = saved;
}

}  // namespace host
