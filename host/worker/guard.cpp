#include "host/worker/guard.h"

#include <iterator>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/descendants.h"
#include "host/descriptor.h"

namespace host {

namespace {

// Ends as the server did, so that the host sees it, but without a second core file.
[[noreturn]] void end_as(int status) {
    end_own_descendants();
    if (!WIFSIGNALED(status)) _exit(WEXITSTATUS(status));
    const int signal_number = WTERMSIG(status);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(signal_number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal_number);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
    raise(signal_number);
    _exit(1);
}

void wait_for_children(pid_t server) {
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;)
        if (ended == server) end_as(status);
}

void pass_on(const signalfd_siginfo& received, pid_t server) {
    sigval value{};
    value.sival_int = received.ssi_int;
    sigqueue(server, cancel_signal, value);
}

}  // namespace

void become_worker() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        sigdelset(&blocked, fault);
        // A sanitizer's handler would report, which it cannot from everywhere, and hide the signal.
        signal(fault, SIG_DFL);
    }
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    prctl(PR_SET_PDEATHSIG, orphan_signal);
}

void guard(pid_t server, int socket, pid_t host) {
    sigset_t heard;
    sigemptyset(&heard);
    for (const int number : {cancel_signal, orphan_signal, SIGCHLD}) sigaddset(&heard, number);
    const Descriptor signals(signalfd(-1, &heard, SFD_CLOEXEC | SFD_NONBLOCK));
    pollfd events[] = {{signals.number(), POLLIN, 0}, {socket, 0, 0}};
    // What ended before there was anybody to hear it.
    wait_for_children(server);
    while (getppid() == host && signals.is_open()) {
        poll(events, std::size(events), -1);
        if (events[1].revents != 0) break;
        signalfd_siginfo received{};
        while (read(signals.number(), &received, sizeof received) == sizeof received) {
            if (received.ssi_signo == static_cast<unsigned>(cancel_signal))
                pass_on(received, server);
            if (received.ssi_signo == SIGCHLD) wait_for_children(server);
        }
    }
    end_as(0);
}

}  // namespace host
