#include "host/postgres/owngroup.h"

#include <csignal>

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace host {

namespace {

thread_local pid_t parent = 0;

void leave_group() {
    if (parent == 0) return;
    setpgid(0, 0);
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // It may have ended before it was to be told of.
    if (getppid() != parent) _exit(127);
}

}  // namespace

OwnGroup::OwnGroup() {
    [[maybe_unused]] static const int registered = pthread_atfork(nullptr, nullptr, leave_group);
    parent = getpid();
}

OwnGroup::~OwnGroup() {
    parent = 0;
}

}  // namespace host
