#ifndef QUOREL_BENCH_SECURESINK_H
#define QUOREL_BENCH_SECURESINK_H

#include <cerrno>
#include <map>
#include <memory>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include "bench/smtpsink.h"
#include "tests/providers/openssl/certificates.h"

/// The plain server with STARTTLS. It reads ahead, and offers no sessions to resume, so that TLS
/// costs it as little as it can.
class SecureSink : public SMTPSink {
  public:
    explicit SecureSink(const Certificate& certificate)
        : _context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
        SSL_CTX_use_certificate(_context.get(), certificate.x509.get());
        SSL_CTX_use_PrivateKey(_context.get(), certificate.key.get());
        SSL_CTX_set_num_tickets(_context.get(), 0);
        SSL_CTX_set_read_ahead(_context.get(), 1);
    }

  protected:
    ssize_t get(int fd, char* bytes, size_t room) override {
        Session* const session = session_of(fd);
        if (session == nullptr) return SMTPSink::get(fd, bytes, room);
        ERR_clear_error();
        const int count = SSL_read(session->ssl.get(), bytes, static_cast<int>(room));
        session->dry = count <= 0;
        if (count > 0) return count;
        errno = EAGAIN;
        return SSL_get_error(session->ssl.get(), count) == SSL_ERROR_WANT_READ ? -1 : 0;
    }
    ssize_t put(int fd, const char* bytes, size_t length) override {
        Session* const session = session_of(fd);
        if (session == nullptr) return SMTPSink::put(fd, bytes, length);
        return SSL_write(session->ssl.get(), bytes, static_cast<int>(length));
    }
    bool more(int fd) override {
        const Session* const session = session_of(fd);
        return session != nullptr && !session->dry && SSL_has_pending(session->ssl.get());
    }

    const char* answer(int fd, char verb) override {
        if (session_of(fd) != nullptr) return SMTPSink::answer(fd, verb);
        return verb == 'E' ? "250-sink\r\n250 STARTTLS\r\n" : "220 go on\r\n";
    }
    void answered(int fd, char verb) override {
        if (verb != 'S') return;
        Session& session = _sessions[fd];
        session.ssl.reset(SSL_new(_context.get()), SSL_free);
        SSL_set_fd(session.ssl.get(), fd);
        SSL_set_accept_state(session.ssl.get());
    }
    void ended(int fd) override { _sessions.erase(fd); }

  private:
    struct Session {
        std::shared_ptr<SSL> ssl;
        bool dry = false;  // the last read gave nothing
    };

    Session* session_of(int fd) {
        const auto found = _sessions.find(fd);
        return found == _sessions.end() ? nullptr : &found->second;
    }

    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> _context;
    std::map<int, Session> _sessions;  // of those that are in TLS
};

#endif
