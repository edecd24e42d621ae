#ifndef QUOREL_TESTS_NETLIB_SMTPPEER_H
#define QUOREL_TESTS_NETLIB_SMTPPEER_H

#include <atomic>
#include <cstdlib>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

/// A scripted SMTP server on a loopback port of the kernel's choice. It answers as told, each
/// connection in a thread of its own, and keeps every byte that it received.
class SMTPPeer {
  public:
    /// What is answered to a command, by its verb ("MAIL", ...), or to one occurrence of it
    /// ("RCPT 2" is the second in a connection); "greeting" and "." (the end of a message) are
    /// verbs too. CRLF is added unless the reply ends with a line feed. In place of a reply:
    ///
    ///     close     closes; "close now" with a reset
    ///     silence   says nothing and goes on reading
    ///     354 deaf  says that, whatever stands before the deaf, and stops reading
    ///     drip      sends the digits of a reply for ever, one every tenth of a second
    ///     flood     sends continuation lines as long as they are taken
    using Replies = std::map<std::string, std::string>;

    /// How bytes come and go on a connection that does not carry them as they are.
    struct Filter {
        virtual ~Filter() = default;
        /// Appends what has arrived, which may be nothing yet; false at the end. Does not wait.
        virtual bool get(std::string* bytes) = 0;
        /// False when they did not go out whole.
        virtual bool put(std::string_view bytes) = 0;
    };

    /// One that does not listen refuses every connection.
    explicit SMTPPeer(Replies replies = {}, int family = AF_INET, bool listens = true)
        : _replies(std::move(replies)) {
        _listener = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_storage name = {};
        name.ss_family = static_cast<sa_family_t>(family);
        socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        if (family == AF_INET) {
            reinterpret_cast<sockaddr_in*>(&name)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            reinterpret_cast<sockaddr_in6*>(&name)->sin6_addr = in6addr_loopback;
        }
        auto* const address = reinterpret_cast<sockaddr*>(&name);
        _usable = _listener != -1 && bind(_listener, address, length) == 0 &&
                  (!listens || listen(_listener, 128) == 0) &&
                  getsockname(_listener, address, &length) == 0;
        _port = ntohs(reinterpret_cast<sockaddr_in*>(&name)->sin_port);
        if (_usable && listens) _acceptor = std::thread([this] { accept_all(); });
    }

    ~SMTPPeer() { finish(); }
    SMTPPeer(const SMTPPeer&) = delete;

    bool usable() const { return _usable; }  // false where the family is not supported
    int port() const { return _port; }

    /// Ends the threads; then every byte received, connection by connection.
    const std::vector<std::string>& finish() {
        _stop = true;
        if (_acceptor.joinable()) _acceptor.join();
        if (_listener != -1) close(_listener);
        _listener = -1;
        return received;
    }
    /// The same, for the only connection.
    std::string transcript() {
        finish();
        return received.empty() ? "" : received.front();
    }

    std::atomic<bool> stalling = false;  // it has nothing more to say, or only drips
    std::atomic<long> messages = 0;      // taken, of all connections
    // To be set before anybody connects.
    size_t keep_at_most = 1 << 24;  // bytes received in a connection; the rest is dropped
    // One reply in so many is left out and the connection closed, by a seeded choice; 0: none.
    unsigned hang_up_one_in = 0;
    // Makes the filter for what follows a STARTTLS that was answered with 220; null closes the
    // connection. Until then EHLO offers STARTTLS and nothing else.
    std::function<std::unique_ptr<Filter>(int fd)> secure;

    std::vector<std::string> received;  // valid after finish()

  private:
    // What has come before finish() is still read.
    bool readable(int fd) const {
        for (;;) {
            const bool last_look = _stop;
            pollfd wanted = {fd, POLLIN, 0};
            if (poll(&wanted, 1, last_look ? 0 : 20) > 0) return true;
            if (last_look) return false;
        }
    }

    struct Connection {
        int fd;
        size_t number;
        unsigned seed = static_cast<unsigned>(number + 1);  // for hanging up
        std::string received = {};
        std::string unread = {};
        std::map<std::string, int> seen = {};  // how often each verb came
        std::unique_ptr<Filter> filter = {};   // once it is secured
        std::thread thread = {};
        std::atomic<bool> over = false;
    };

    void accept_all() {
        while (readable(_listener)) {
            const int fd = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd == -1) continue;
            _open.remove_if([this](Connection& c) { return c.over && end(c); });
            Connection& connection = _open.emplace_back(fd, received.size());
            received.emplace_back();
            connection.thread = std::thread([this, &connection] { serve(connection); });
        }
        for (Connection& connection : _open) end(connection);
    }

    bool end(Connection& c) {
        c.thread.join();
        received[c.number] = std::move(c.received);
        return true;
    }

    void serve(Connection& c) {
        if (say(c, "greeting")) converse(c);
        c.filter.reset();  // it may say good-bye
        close(c.fd);
        c.over = true;
    }

    void converse(Connection& c) {
        std::string line;
        while (take(c, "\r\n", &line)) {
            const std::string verb = line.substr(0, line.find_first_of(" \r"));
            if (!say(c, verb)) return;
            if (verb == "QUIT") return;
            if (verb == "STARTTLS" && reply_to(c, verb).starts_with("220")) {
                c.unread.clear();
                if ((c.filter = secure(c.fd)) == nullptr) return;
            }
            if (verb != "DATA" || reply_to(c, verb).substr(0, 3) != "354") continue;
            if (!take(c, "\r\n.\r\n", &line)) return;
            ++messages;
            if (!say(c, ".")) return;
        }
    }

    // Reads up to and with `end`.
    bool take(Connection& c, const std::string& end, std::string* text) {
        size_t from = 0;
        size_t at = 0;
        while ((at = c.unread.find(end, from)) == std::string::npos) {
            from = c.unread.size() < end.size() ? 0 : c.unread.size() - end.size();
            if (!receive(c)) return false;
        }
        *text = c.unread.substr(0, at + end.size());
        c.unread.erase(0, at + end.size());
        return true;
    }

    bool receive(Connection& c) {
        std::string bytes;
        if (!readable(c.fd)) return false;
        if (!(c.filter != nullptr ? c.filter->get(&bytes) : get(c.fd, &bytes))) return false;
        if (c.received.size() < keep_at_most) c.received += bytes;
        c.unread += bytes;
        return true;
    }

    static bool get(int fd, std::string* bytes) {
        static thread_local char block[65536];
        const ssize_t count = recv(fd, block, sizeof block, 0);
        if (count > 0) bytes->assign(block, static_cast<size_t>(count));
        return count > 0;
    }

    std::string reply_to(const Connection& c, const std::string& verb) const {
        const auto nth = _replies.find(verb + " " + std::to_string(c.seen.at(verb)));
        if (nth != _replies.end()) return nth->second;
        const auto any = _replies.find(verb);
        if (any != _replies.end()) return any->second;
        if (verb == "greeting") return "220 peer.test";
        if (verb == "EHLO" && secure && c.filter == nullptr) return "250-peer.test\r\n250 STARTTLS";
        if (verb == "STARTTLS") return "220 go on";
        if (verb == "EHLO") return "250-peer.test\r\n250-8BITMIME\r\n250 AUTH PLAIN LOGIN";
        if (verb == "AUTH") return "235 welcome";
        if (verb == "DATA") return "354 go on";
        if (verb == "QUIT") return "221 bye";
        return "250 ok";
    }

    // False when the connection is over.
    bool say(Connection& c, const std::string& verb) {
        ++c.seen[verb];
        if (hang_up_one_in != 0 && static_cast<unsigned>(rand_r(&c.seed)) % hang_up_one_in == 0)
            return false;
        const std::string reply = reply_to(c, verb);
        if (reply == "close") return false;
        if (reply == "close now") return reset(c.fd);
        stalling = stalling || reply == "silence" || reply == "drip";
        if (reply == "silence") return true;
        if (reply.ends_with(" deaf")) return put(c, reply + "\r\n") && wait_for_stop();
        if (reply == "drip") return repeat(c, "2", 100);
        if (reply == "flood") return repeat(c, std::string(50, '2').replace(3, 1, "-") + "\r\n", 0);
        return put(c, reply.back() == '\n' ? reply : reply + "\r\n");
    }

    static bool put(Connection& c, const std::string& text) {
        if (c.filter != nullptr) return c.filter->put(text);
        size_t sent = 0;
        while (sent < text.size()) {
            const ssize_t n = send(c.fd, &text[sent], text.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<size_t>(n);
        }
        return true;
    }

    static bool reset(int fd) {
        const linger at_once = {1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        return false;
    }

    bool wait_for_stop() {
        stalling = true;
        while (!_stop) poll(nullptr, 0, 20);
        return false;
    }

    bool repeat(Connection& c, const std::string& text, int pause_ms) const {
        const timeval patience = {0, 100000};
        setsockopt(c.fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        while (!_stop && (put(c, text) || errno == EAGAIN)) poll(nullptr, 0, pause_ms);
        return false;
    }

    const Replies _replies;
    int _listener = -1;
    int _port = 0;
    bool _usable = false;
    std::atomic<bool> _stop = false;
    std::thread _acceptor;
    std::list<Connection> _open;  // of the acceptor alone
};

#endif
