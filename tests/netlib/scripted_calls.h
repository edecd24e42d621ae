#ifndef QUOREL_TESTS_NETLIB_SCRIPTED_CALLS_H
#define QUOREL_TESTS_NETLIB_SCRIPTED_CALLS_H

/// Scripted answers for the system calls under netlib/unixsocket.h. The test program is linked so
/// that those calls arrive here (see CMakeLists.txt). Outside a Script they go on to the system.

#include <string>
#include <vector>

#include <netinet/in.h>

/// While it lives, system calls get the answers of a text, in its order, and time stands still but
/// for what the answers take. A call out of order, or an answer left over, fails the test. Answers
/// are separated by blanks:
///
///     recv=5                the call returns 5
///     recv!EAGAIN           it fails with that error
///     poll:R,-,WE           readable, nothing, writable and failed: descriptor by descriptor
///                           (R, W, E, H, N for POLLIN, POLLOUT, POLLERR, POLLHUP, POLLNVAL)
///     silence               a poll whose whole time-out passes without an event
///     pending=ECONNRESET    SO_ERROR is read and holds that error
///     segment=1448          TCP_MAXSEG is read
///     connect!EINTR@990     ... and 990 ms pass
///     recv!EINTR*1000       ... and that a thousand times
class Script {
  public:
    explicit Script(const std::string& text);
    ~Script();

    static int elapsed_ms();
    std::vector<int> poll_timeouts;  // of every poll
    std::string kernel = "6.1.0";    // what uname reports
    sockaddr_in6 connected_to = {};  // of the last connect

    struct Answer {
        std::string call;
        long result = 0;
        int error = 0;  // errno of a failure; what getsockopt stores
        std::vector<short> revents = {};
        int ms = 0;  // that pass; -1 for the time-out of a poll
        int times = 1;
    };
    std::vector<Answer> left;
};

#endif
