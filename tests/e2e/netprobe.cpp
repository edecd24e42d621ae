// netprobe HOST PORT TIMEOUT_MS [SEND_BYTES]
//
// Connects the way the mail client does, reads a greeting, optionally sends, and reports each step
// that it reached on one line: `connect=-1/110/timed-out peer=... recv=4/0`, where a step
// is its result, the error code of a failure, and whether it gave up on time.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "netlib/ipaddress.h"
#include "netlib/netutil.h"
#include "netlib/timedsocket.h"

namespace {

int report(const char* step, int result, TimedSocket& socket) {
    const unsigned error = result == -1 ? socket.getLastError().code() : 0;
    std::printf("%s=%d/%u%s ", step, result, error, socket.didTimeout() ? "/timed-out" : "");
    return result;
}

void run(TimedSocket& socket, const IPAddress& address, unsigned int to_send) {
    if (report("connect", socket.connect(address), socket) == -1) return;
    IPAddress peer;
    char text[100] = "";
    if (socket.getpeername(peer) == 0) peer.toString(text, sizeof text, false, false, true);
    std::printf("peer=%s ", text);
    char greeting[4];
    if (report("recv", socket.recv(greeting, sizeof greeting), socket) == -1) return;
    if (to_send == 0) return;
    const std::string bytes(to_send, 'x');
    report("send", socket.send(bytes.data(), to_send), socket);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4 || !TcpUtil::Init()) return 2;
    IPAddress address;
    const auto port = static_cast<uint16>(std::atoi(argv[2]));
    if (TcpUtil::Resolve(argv[1], port, address, TcpUtil::ADDR_BOTH)) {
        TimedSocket socket(SOCK_TCP, address.isIPv6());
        socket.Socket::set_blocking_state(false);
        socket.setTimeout(std::atoi(argv[3]));
        run(socket, address, argc > 4 ? static_cast<unsigned int>(std::atoi(argv[4])) : 0);
        std::printf("\n");
        socket.close();
    } else {
        std::printf("unresolved\n");
    }
    TcpUtil::Fini();
    return 0;
}
