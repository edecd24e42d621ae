// What each operation makes of each failure that its system calls can meet. The scripts' language
// is in scripted_calls.h.

#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "netlib/ipaddress.h"
#include "netlib/timedsocket.h"
#include "tests/netlib/scripted_calls.h"

namespace {

char bytes[8];

using Operation = int (*)(Socket&);

constexpr Operation recv = [](Socket& s) { return s.recv(bytes, 8); };
constexpr Operation recv_from = [](Socket& s) {
    IPAddress from;
    return s.recv(bytes, 8, from);
};
constexpr Operation send = [](Socket& s) { return s.send(bytes, 8); };
constexpr Operation send_to = [](Socket& s) { return s.send(bytes, 8, IPAddress(uint32{1})); };
a_bool stop(void*) {
    errno = 0;  // what a yield function does to errno is not what stopped the send
    return false;
}
constexpr Operation send_and_stop = [](Socket& s) {
    return s.send_with_yield(bytes, 8, stop, nullptr);
};
constexpr Operation connect = [](Socket& s) { return s.connect(IPAddress(uint32{1})); };
constexpr Operation connect_invalid = [](Socket& s) {
    IPAddress none;
    if (s.connect(none) != -1) return 0;
    none.setValid(true);  // of no family
    return s.connect(none);
};
constexpr Operation bind = [](Socket& s) { return s.bind(IPAddress(uint32{INADDR_LOOPBACK})); };
constexpr Operation listen = [](Socket& s) { return s.listen(1); };
constexpr Operation set_option = [](Socket& s) { return s.allow_broadcast(); };
constexpr Operation get_name = [](Socket& s) { return IPAddress(s).isValid() ? 0 : -1; };
constexpr Operation bind_invalid = [](Socket& s) { return s.bind(IPAddress()); };
constexpr Operation accept = [](Socket& s) {
    IPAddress peer;
    Socket accepted;
    return s.accept(peer, accepted) == -1 ? -1 : accepted.getSocket();
};
constexpr Operation close = [](Socket& s) { return unix_close(s.getSocket()); };
constexpr Operation ioctl = [](Socket& s) { return s.Socket::set_blocking_state(false); };
constexpr Operation wait = [](Socket& s) {
    a_bool read = true, write = true;
    return s.select(read, write, 0xFFFFFFFF);
};

struct Fault {
    Operation operation;
    const char* script;
    int result;
    int error = 0;  // what getLastError() then says
};

// Interruptions are never seen; all else is reported as the call reports it.
const Fault plain_faults[] = {
    {recv, "recv!EINTR*1000 recv=5", 5},
    {send, "send!EINTR*1000 send=8", 8},
    {send_to, "sendto!EINTR*1000 sendto=8", 8},
    {accept, "accept4!EINTR*1000 accept4=100001", 100001},
    {close, "close!EINTR*1000 close=0", 0},
    {ioctl, "ioctl!EINTR*1000 ioctl=0", 0},
    {recv_from, "poll!EINTR*1000 silence poll:R recvfrom!EINTR*1000 recvfrom=5", 5},
    {connect, "connect!EINTR@100*1000 connect=0", 0},

    {recv, "recv!EAGAIN", -1, EAGAIN},
    {recv_from, "poll!ENOMEM", -1, ENOMEM},
    {connect, "connect!ECONNREFUSED", -1, ECONNREFUSED},
    {connect_invalid, "", -1, EINVAL},
    {bind_invalid, "", -1, EINVAL},
    {send, "send=3 poll:W send!EAGAIN poll:W send=5", 8},
    {send, "send=3 poll:W send!EPIPE", -1, EPIPE},
    {send, "send!EAGAIN poll:E pending=ECONNRESET", -1, ECONNRESET},
    {send, "send!EAGAIN poll:E pending=0", -1, EIO},
    {send_and_stop, "send!EAGAIN", -1, EAGAIN},
    {send_and_stop, "send=3", 3},
    {wait, "poll:H", 1},
    {wait, "poll:N", -1, EBADF},
};

// With a time-out of 1000 ms, which is four silent slices.
const Fault timed_faults[] = {
    {recv, "recv!EAGAIN silence recv!EINPROGRESS poll:R recv=5", 5},
    {recv, "recv!ECONNRESET", -1, ECONNRESET},
    {recv, "recv!EAGAIN poll:RE pending=ECONNRESET", -1, ECONNRESET},
    {recv, "recv!EAGAIN poll:E pending=0", -1, EIO},
    {recv, "recv!EAGAIN poll:E getsockopt!ENOTSOCK", -1, ENOTSOCK},
    {recv, "recv!EAGAIN poll!ENOMEM pending=0", -1, ENOMEM},
    {recv, "recv!EAGAIN poll:N getsockopt!EBADF", -1, EBADF},
    // Kept: a receive with an address waits past the time-out.
    {recv_from, "silence*10 poll:R recvfrom!EAGAIN poll:R poll:R recvfrom=5", 5},
    {send_to, "sendto!EAGAIN poll:W sendto=8", 8},
    {send_to, "sendto!EAGAIN poll:W@600 sendto!EAGAIN poll:W@600 sendto!EAGAIN", -1, ETIMEDOUT},
    {send, "send=3 poll:W send!EAGAIN silence send!EAGAIN poll:W send=4 poll:W send=1", 8},
    {send, "send=3 poll:WE pending=ECONNRESET", -1, ECONNRESET},
    {send, "send!EAGAIN silence send=3 silence send!EAGAIN silence send!EAGAIN silence", -1,
     ETIMEDOUT},
    {send, "send=1 poll:W@400 send=1 poll:W@400 send=1 poll:W@400 send=1", -1, ETIMEDOUT},
    // Kept: a stop before anything was sent does not end the call.
    {send_and_stop, "send!EAGAIN poll:W send=3", 3},
    {send_and_stop, "send!EAGAIN@800 silence", -1, ETIMEDOUT},  // what the function takes counts

    {connect, "connect!EINPROGRESS silence connect!EALREADY poll:W getpeername=0", 0},
    {connect, "connect!EINPROGRESS silence connect!EISCONN", 0},
    {connect, "connect!EINTR@990 connect!EINTR@10 poll:W getpeername=0", 0},
    {connect, "connect!EINPROGRESS poll:WEH pending=ECONNREFUSED", -1, ECONNREFUSED},
    {connect, "connect!EINPROGRESS poll:W getpeername!EINVAL", -1, ENOTCONN},
    {connect_invalid, "", -1, EINVAL},
};

template <class Kind>
void run(Kind&& socket, const Fault& fault) {
    SCOPED_TRACE(fault.script);
    Script script(fault.script);
    ASSERT_EQ(fault.result, fault.operation(socket));
    if constexpr (requires { socket.didTimeout(); }) {
        EXPECT_EQ(fault.error == ETIMEDOUT, socket.didTimeout());
    }
    const UTErrorCode error = socket.getLastError();
    EXPECT_EQ(ET_POSIX, error.type());
    EXPECT_TRUE(fault.result != -1 || error.code() == static_cast<uint32>(fault.error));
}

TEST(SocketFaults, end_in_their_result_and_error_code) {
    for (const Fault& fault : plain_faults) run(Socket(100000, SOCK_TCP, false), fault);
    for (const Fault& fault : timed_faults) {
        TimedSocket socket(100000, SOCK_TCP, false);
        socket.setTimeout(1000);
        run(socket, fault);
    }
}

TEST(SocketFaults, a_closed_socket_fails_with_EBADF_at_once_whoever_has_its_number_now) {
    constexpr Operation all[] = {recv,   recv_from, send,  send_to, send_and_stop, connect, bind,
                                 listen, accept,    ioctl, wait,    set_option,    get_name};
    SOCKET ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
    Socket plain(ends[0], SOCK_UDP, false);
    plain.close();
    TimedSocket timed(ends[0], SOCK_UDP, false);
    timed.close();
    ASSERT_EQ(ends[0], dup(ends[1]));
    for (Socket* const socket : std::initializer_list<Socket*>{&plain, &timed}) {
        for (const Operation& operation : all) {
            SCOPED_TRACE(&operation - all);
            errno = 0;
            EXPECT_EQ(-1, operation(*socket));
            EXPECT_EQ(uint32{EBADF}, socket->getLastError().code());
        }
        socket->shutdown(SHUTDOWN_BOTH);
        socket->close();
    }
    EXPECT_EQ(0, fcntl(ends[0], F_GETFL) & O_NONBLOCK);
    for (const SOCKET end : ends) EXPECT_EQ(0, unix_close(end));
}

}  // namespace
