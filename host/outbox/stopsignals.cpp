#include "host/outbox/stopsignals.h"

#include <csignal>

#include <sys/signalfd.h>

namespace host::outbox {

StopSignals::StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    // Blocked, they also reach a process that was started to ignore them.
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) signal(number, SIG_DFL);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    _signals = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    // A database or a service manager that has gone is an error of a call.
    signal(SIGPIPE, SIG_IGN);
}

int StopSignals::read() {
    int asked = 0;
    signalfd_siginfo info{};
    while (::read(_signals.number(), &info, sizeof info) == sizeof info)
        if (info.ssi_signo != SIGHUP) ++asked;
    return asked;
}

}  // namespace host::outbox
