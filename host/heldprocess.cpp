#include "host/heldprocess.h"

#include <cerrno>
#include <csignal>

#include <sys/syscall.h>
#include <unistd.h>

#include "host/processstate.h"

namespace host {

// The descriptor first: what is then read of the process is this one's, if it can still be
// signalled afterwards.
HeldProcess::HeldProcess(pid_t pid, pid_t parent) {
    if (pid <= 0) return;
    Descriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0U)));
    const ProcessState state = state_of(pid);
    if (state.parent != parent) return;
    _pid = pid;
    _descriptor = std::move(descriptor);
    _started = state.started;
}

bool HeldProcess::send(int signal_number) const {
    if (_descriptor.is_open())
        return syscall(SYS_pidfd_send_signal, _descriptor.number(), signal_number, nullptr, 0U) ==
               0;
    if (_pid > 0 && state_of(_pid).started == _started) return kill(_pid, signal_number) == 0;
    errno = ESRCH;
    return false;
}

bool HeldProcess::queue(int signal_number, int value) const {
    siginfo_t info{};
    info.si_signo = signal_number;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_int = value;
    if (_descriptor.is_open())
        return syscall(SYS_pidfd_send_signal, _descriptor.number(), signal_number, &info, 0U) == 0;
    return send(0) && sigqueue(_pid, signal_number, info.si_value) == 0;
}

}  // namespace host
