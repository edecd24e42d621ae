#ifndef QUOREL_BENCH_SMTPSINK_H
#define QUOREL_BENCH_SMTPSINK_H

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

/// A server that answers every command with success and throws messages away, for many connections
/// at once, in the thread that calls run(). It does as little as an SMTP server can.
class SMTPSink {
  public:
    /// One reply in `hang_up_one_in` is left out and the connection closed, by a seeded choice; 0
    /// for none.
    explicit SMTPSink(unsigned hang_up_one_in = 0, unsigned seed = 1)
        : _hang_up_one_in(hang_up_one_in), _seed(seed) {
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof name;
        _listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        _epoll = epoll_create1(EPOLL_CLOEXEC);
        auto* const address = reinterpret_cast<sockaddr*>(&name);
        if (bind(_listener, address, length) != 0 || listen(_listener, 128) != 0 ||
            getsockname(_listener, address, &length) != 0) {
            std::abort();
        }
        _port = ntohs(name.sin_port);
        watch(_listener);
    }
    virtual ~SMTPSink() {
        for (const auto& [fd, connection] : _connections) close(fd);
        close(_listener);
        close(_epoll);
    }
    SMTPSink(const SMTPSink&) = delete;

    int port() const { return _port; }
    void stop() { _stop = true; }
    long messages() const { return _messages; }

    /// Serves until stop().
    void run() {
        epoll_event events[64];
        while (!_stop) {
            const int count = epoll_wait(_epoll, events, 64, 20);
            for (int i = 0; i < count; ++i) serve(events[i].data.fd);
        }
    }

  protected:
    // How bytes come and go, for a server that does not take them as they are.

    /// As recv() and send() of a socket that does not block.
    virtual ssize_t get(int fd, char* bytes, size_t room) { return recv(fd, bytes, room, 0); }
    virtual ssize_t put(int fd, const char* bytes, size_t length) {
        return send(fd, bytes, length, MSG_NOSIGNAL);
    }
    /// Whether something was received that get() has not handed out yet.
    virtual bool more(int) { return false; }
    /// What a command is answered with that begins with the letter `verb`.
    virtual const char* answer(int, char verb) {
        return verb == 'D' ? "354 go on\r\n" : "250 ok\r\n";
    }
    /// The answer has gone out.
    virtual void answered(int, char) {}
    /// The connection is to be closed.
    virtual void ended(int) {}

  private:
    struct Connection {
        bool in_message = false;
        std::string unread;  // of commands; of a message the last bytes
    };

    void watch(int fd) const {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        epoll_ctl(_epoll, EPOLL_CTL_ADD, fd, &event);
    }

    void serve(int fd) {
        if (fd != _listener) {
            do {
                if (!receive(fd, _connections[fd])) return drop(fd);
            } while (more(fd));
            return;
        }
        const int accepted = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (accepted == -1) return;
        const int on = 1;
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        _connections[accepted] = {};
        watch(accepted);
        if (!say(accepted, "220 sink\r\n")) drop(accepted);
    }

    void drop(int fd) {
        ended(fd);
        close(fd);
        _connections.erase(fd);
    }

    bool receive(int fd, Connection& connection) {
        static thread_local char bytes[1 << 18];
        const ssize_t count = get(fd, bytes, sizeof bytes);
        if (count == -1) return errno == EAGAIN;
        if (count == 0) return false;
        if (connection.in_message) return message(fd, connection, {bytes, size_t(count)});
        connection.unread.append(bytes, static_cast<size_t>(count));
        return commands(fd, connection);
    }

    bool commands(int fd, Connection& connection) {
        size_t end = 0;
        while ((end = connection.unread.find('\n')) != std::string::npos) {
            const char verb = static_cast<char>(connection.unread[0] & ~0x20);
            connection.unread.erase(0, end + 1);
            if (verb == 'Q') return say(fd, "221 bye\r\n") && false;
            if (!say(fd, answer(fd, verb))) return false;
            answered(fd, verb);
            if (verb != 'D') continue;
            connection.in_message = true;
            const std::string rest = std::move(connection.unread);
            connection.unread = "\r\n";
            return rest.empty() || message(fd, connection, rest);
        }
        return true;
    }

    // Only the end of what has arrived is looked at: a client waits for the answer to a message.
    bool message(int fd, Connection& connection, std::string_view bytes) {
        constexpr std::string_view end = "\r\n.\r\n";
        std::string& tail = connection.unread;
        tail.append(bytes.substr(bytes.size() - std::min(bytes.size(), end.size())));
        if (tail.size() > end.size()) tail.erase(0, tail.size() - end.size());
        if (tail != end) return true;
        ++_messages;
        connection = {};
        return say(fd, "250 ok\r\n");
    }

    bool say(int fd, const char* reply) {
        if (_hang_up_one_in != 0 && static_cast<unsigned>(rand_r(&_seed)) % _hang_up_one_in == 0)
            return false;
        return put(fd, reply, std::strlen(reply)) > 0;
    }

    unsigned _hang_up_one_in;
    unsigned _seed;
    int _listener;
    int _epoll;
    int _port = 0;
    std::map<int, Connection> _connections;
    std::atomic<bool> _stop = false;
    std::atomic<long> _messages = 0;
};

#endif
