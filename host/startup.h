#ifndef QUOREL_HOST_STARTUP_H
#define QUOREL_HOST_STARTUP_H

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace host {

/// What a program does first, whatever its parent left it. SIGCHLD gets its default: a parent that
/// ignores it has its children ignore it, and then no command's status is known. A standard
/// descriptor that is closed is taken, by one that cannot be written to, so that a session's socket
/// does not get its number and what is printed with it.
inline void start_program() {
    signal(SIGCHLD, SIG_DFL);
    int opened = 0;
    do opened = open("/dev/null", O_RDONLY);
    while (opened >= STDIN_FILENO && opened <= STDERR_FILENO);
    if (opened > STDERR_FILENO) close(opened);
}

}  // namespace host

#endif
