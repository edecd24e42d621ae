#ifndef QUOREL_TESTS_EXTDLL_SECURERELAY_H
#define QUOREL_TESTS_EXTDLL_SECURERELAY_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "extdll/mailcrypto.h"
#include "kovcert/qxci/qxcialgorithms.h"
#include "kovcert/tlssession.h"
#include "kovcert/tlsstream.h"

/// A mail server that wants STARTTLS, made of one that knows nothing of it: it answers in clear
/// text as told up to STARTTLS, ends the TLS session with the provider that the process uses, and
/// passes on what is inside to a server on another port of this machine. One thread for each
/// connection.
class SecureRelay {
  public:
    /// What it says in clear text; nothing: it closes. After a reply of 220 to STARTTLS comes TLS.
    struct Dialogue {
        std::string greeting = "220 relay\r\n";
        std::string ehlo = "250-relay\r\n250 STARTTLS\r\n";
        std::string starttls = "220 go on\r\n";
        std::string script = {};  // of the stub provider, on the server's side
        bool secure = true;       // whether there is TLS after 220, or it closes
        // A file of the certificate and key to show; the provider is then OpenSSL's, for the whole
        // process, else the stub.
        std::string identity = {};
    };
    /// What a client said: in clear text, and after that.
    struct Heard {
        std::string clear;
        std::string raw;
    };

    explicit SecureRelay(int behind) : SecureRelay(behind, Dialogue()) {}
    SecureRelay(int behind, Dialogue dialogue) : _behind(behind), _dialogue(std::move(dialogue)) {
        gUseStub = _dialogue.identity.empty();
        sockaddr_in name = loopback(0);
        socklen_t length = sizeof name;
        _listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        auto* const address = reinterpret_cast<sockaddr*>(&name);
        if (bind(_listener, address, length) != 0 || listen(_listener, 128) != 0 ||
            getsockname(_listener, address, &length) != 0) {
            std::abort();
        }
        _port = ntohs(name.sin_port);
        _acceptor = std::thread([this] { accept_all(); });
    }
    ~SecureRelay() { finish(); }
    SecureRelay(const SecureRelay&) = delete;

    int port() const { return _port; }

    /// Ends all threads; then what every client said, in no particular order.
    const std::vector<Heard>& finish() {
        _stop = true;
        if (_acceptor.joinable()) _acceptor.join();
        while (_serving > 0) poll(nullptr, 0, 1);
        if (_listener != -1) close(_listener);
        _listener = -1;
        return _heard;
    }

  private:
    struct Client {
        int fd;
        Heard heard;
    };

    static sockaddr_in loopback(int port) {
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        name.sin_port = htons(static_cast<uint16_t>(port));
        return name;
    }

    // Waits for bytes on either, but not once it is to end.
    bool readable(int fd, int other = -1) const {
        do {
            pollfd wanted[] = {{fd, POLLIN, 0}, {other, POLLIN, 0}};
            if (poll(wanted, 2, 20) > 0) return true;
        } while (!_stop);
        return false;
    }

    void accept_all() {
        while (readable(_listener)) {
            const int fd = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd == -1) continue;
            ++_serving;
            std::thread([this, fd] {
                serve(fd);
                --_serving;
            }).detach();
        }
    }

    void serve(int fd) {
        Client client = {fd, {}};
        converse(client);
        close(fd);
        const std::lock_guard lock(_mutex);
        _heard.push_back(std::move(client.heard));
    }

    void converse(Client& client) {
        std::string line;
        if (!put(client.fd, _dialogue.greeting)) return;
        while (take_line(client.fd, &line)) {
            client.heard.clear += line;
            const bool starts = line == "STARTTLS\r\n";
            const std::string& reply = starts ? _dialogue.starttls : _dialogue.ehlo;
            if (!put(client.fd, reply)) return;
            if (starts && reply.starts_with("220")) return secure(client);
        }
    }

    bool take_line(int fd, std::string* line) const {
        line->clear();
        for (char byte = 0; byte != '\n'; *line += byte) {
            if (!readable(fd) || recv(fd, &byte, 1, 0) != 1) return false;
        }
        return true;
    }

    static bool put(int fd, std::string_view text) {
        if (text.empty()) return false;
        while (!text.empty()) {
            const ssize_t n = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
            if (n <= 0) return false;
            text.remove_prefix(static_cast<size_t>(n));
        }
        return true;
    }

    static size_t send_raw(void* context, const char* data, size_t len) {
        return put(static_cast<Client*>(context)->fd, {data, len}) ? len : 0;
    }
    static int receive_raw(void* context, char* buf, size_t len, size_t* got) {
        Client& client = *static_cast<Client*>(context);
        const ssize_t count = recv(client.fd, buf, len, MSG_DONTWAIT);
        *got = count > 0 ? static_cast<size_t>(count) : 0;
        client.heard.raw.append(buf, *got);
        return count > 0 || (count == -1 && errno == EAGAIN);
    }

    void secure(Client& client) const {
        if (!_dialogue.secure) return;
        constexpr TlsCallbacks callbacks = {send_raw, receive_raw, nullptr, nullptr};
        a_qxci_user_option identity = {"identity_file", _dialogue.identity.c_str(), false, nullptr};
        a_qxci_user_option script = {"stub_script", _dialogue.script.c_str(), false, nullptr};
        DBQXCIEnvironment env(&mail_crypto_callbacks, nullptr);
        DBQXCIError err;
        env.Init(false, "relay", gUseStub ? &script : &identity, &err);
        const std::unique_ptr<DBQXCIStream> stream(
            env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &err));
        if (stream == nullptr || stream->Init(QXCI_SERVER, nullptr) != QXCI_OK) std::abort();
        TlsConnection conn(stream.get(), &env, &callbacks, &client, nullptr, &err, nullptr);
        const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in name = loopback(_behind);
        std::string greeting;
        if (connect(server, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 &&
            take_line(server, &greeting)) {
            pass_on(client.fd, server, conn);
        }
        close(server);
    }

    void pass_on(int fd, int server, TlsConnection& conn) const {
        TlsIStream in(&conn, nullptr);
        char bytes[65536];
        while (readable(fd, server)) {
            while (const size_t count = in.get(bytes, sizeof bytes)) put(server, {bytes, count});
            if (in.eof()) return;
            const ssize_t count = recv(server, bytes, sizeof bytes, MSG_DONTWAIT);
            if (count == -1 && errno == EAGAIN) continue;
            if (count <= 0) return;
            conn.write(bytes, static_cast<size_t>(count));
        }
    }

    const int _behind;
    const Dialogue _dialogue;
    int _listener = -1;
    int _port = 0;
    std::atomic<bool> _stop = false;
    std::thread _acceptor;
    std::atomic<int> _serving = 0;  // clients, each with a thread
    std::mutex _mutex;
    std::vector<Heard> _heard;  // guarded by _mutex until the threads have ended
};

#endif
