#include "host/descendants.h"

#include <cerrno>
#include <csignal>
#include <ctime>

#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/processstate.h"

namespace host {

namespace {

// How many children of `parent` live on after their SIGKILL.
int kill_children(pid_t parent) {
    int living = 0;
    for_each_process([&](pid_t pid) {
        const ProcessState state = state_of(pid);
        if (state.parent != parent || !state.lives) return;
        // Held, because the number may have gone to another process by now.
        if (HeldProcess(pid, parent).send(SIGKILL)) ++living;
    });
    return living;
}

// True once none of its threads can start a process any more.
bool is_at_rest(pid_t child) {
    siginfo_t change{};
    // WNOWAIT leaves its exit status to whoever waits for the command.
    const int report = WSTOPPED | WEXITED | WNOWAIT | WNOHANG;
    return waitid(P_PID, static_cast<id_t>(child), &change, report) != 0 || change.si_pid == child;
}

std::int64_t milliseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Again and again, because a child that ends leaves its own to `parent`.
template <typename AtRest>
void kill_until(pid_t parent, const AtRest& at_rest) {
    constexpr std::int64_t patience = 500;  // milliseconds
    constexpr int interval = 1;
    const std::int64_t deadline = milliseconds_now() + patience;
    for (;;) {
        const bool rests = at_rest();  // asked first: what it then has is all that it will have
        if (kill_children(parent) == 0 && rests) return;
        if (milliseconds_now() >= deadline) return;
        poll(nullptr, 0, interval);
    }
}

// Waits for those children that have ended. True when there are no others.
bool wait_for_ended() {
    pid_t ended = 0;
    do ended = waitpid(-1, nullptr, WNOHANG);
    while (ended > 0);
    return ended < 0 && errno == ECHILD;
}

thread_local bool orphans_stay = false;

void keep_orphans_in_child() {
    if (orphans_stay) prctl(PR_SET_CHILD_SUBREAPER, 1);
}

}  // namespace

// In the child, not here: the mark of this process would make it the parent of orphans that its
// program knows nothing of and waits for in vain.
OrphansStay::OrphansStay() {
    [[maybe_unused]] static const int registered =
        pthread_atfork(nullptr, nullptr, keep_orphans_in_child);
    orphans_stay = true;
}

OrphansStay::~OrphansStay() {
    orphans_stay = false;
}

// Stopped first, or the command would start new ones as fast as they are ended.
void end_descendants(const HeldProcess& command) {
    const int saved = errno;
    if (command.send(SIGSTOP) || errno == EPERM)
        kill_until(command.pid(), [&command] { return is_at_rest(command.pid()); });
    errno = saved;
}

void end_own_descendants() {
    const int saved = errno;
    if (!wait_for_ended()) kill_until(getpid(), [] { return true; });
    errno = saved;
}

}  // namespace host
