#ifndef QUOREL_TESTS_EXTDLL_TLSSERVER_H
#define QUOREL_TESTS_EXTDLL_TLSSERVER_H

#include <string>

#include <poll.h>
#include <sys/socket.h>

#include "extdll/mailcrypto.h"
#include "kovcert/qxci/qxcialgorithms.h"
#include "kovcert/tlssession.h"
#include "kovcert/tlsstream.h"
#include "tests/netlib/smtppeer.h"

/// The server's end of a TLS session of the stub's over a connected socket.
class TlsServer final : public SMTPPeer::Filter {
  public:
    /// The stub plays `script`. What is received is added to *raw as it came, if not null.
    TlsServer(int fd, const std::string& script, std::string* raw)
        : _fd(fd), _raw(raw), _env(&mail_crypto_callbacks, nullptr) {
        DBQXCIError err;
        a_qxci_user_option options = {"stub_script", script.c_str(), false, nullptr};
        _env.Init(false, "server", &options, &err);
        _stream.reset(_env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &err));
        if (_stream == nullptr || _stream->Init(QXCI_SERVER, nullptr) != QXCI_OK) std::abort();
        _conn.emplace(_stream.get(), &_env, &callbacks, this, nullptr, &err, nullptr);
        _in.emplace(&*_conn, nullptr);
    }

    bool get(std::string* bytes) override {
        char block[4096];
        while (const size_t count = _in->get(block, sizeof block)) bytes->append(block, count);
        return !bytes->empty() || !_in->eof();
    }
    bool put(std::string_view bytes) override {
        return _conn->write(bytes.data(), bytes.size()) == QxciErrOK;
    }

  private:
    static size_t send_raw(void* self, const char* data, size_t length) {
        constexpr int patience_in_ms = 10000;
        pollfd wanted = {static_cast<TlsServer*>(self)->_fd, POLLOUT, 0};
        for (size_t sent = 0; sent < length;) {
            poll(&wanted, 1, patience_in_ms);
            const ssize_t n = send(wanted.fd, data + sent, length - sent, MSG_NOSIGNAL);
            if (n <= 0) return 0;
            sent += static_cast<size_t>(n);
        }
        return length;
    }
    static int receive_raw(void* self, char* buf, size_t length, size_t* got) {
        const TlsServer& server = *static_cast<TlsServer*>(self);
        const ssize_t count = recv(server._fd, buf, length, MSG_DONTWAIT);
        *got = count > 0 ? static_cast<size_t>(count) : 0;
        if (server._raw != nullptr) server._raw->append(buf, *got);
        return count > 0 || (count == -1 && errno == EAGAIN);
    }
    static constexpr TlsCallbacks callbacks = {send_raw, receive_raw, nullptr, nullptr};

    const int _fd;
    std::string* const _raw;
    DBQXCIEnvironment _env;
    std::unique_ptr<DBQXCIStream> _stream;
    std::optional<TlsConnection> _conn;
    std::optional<TlsIStream> _in;
};

/// For SMTPPeer::secure: servers over the stub, which plays `script`.
inline auto stub_servers(const std::string& script = "", std::string* raw = nullptr) {
    return [=](int fd) { return std::make_unique<TlsServer>(fd, script, raw); };
}

#endif
