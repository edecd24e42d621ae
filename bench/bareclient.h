#ifndef QUOREL_BENCH_BARECLIENT_H
#define QUOREL_BENCH_BARECLIENT_H

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "utils/etc/base64.h"

/// What any client has to do at least: send prepared bytes, and for a file read, encode, send. It
/// looks at no answer, and at no certificate. One that is `patient` waits for ever in a single call
/// for each answer; the other way takes two, the first of which could give up.
class BareClient {
  public:
    BareClient(int port, bool secure, bool patient = true)
        : _fd(socket(AF_INET, SOCK_STREAM, 0)), _patient(patient) {
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        name.sin_port = htons(static_cast<uint16_t>(port));
        if (connect(_fd, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0) std::abort();
        converse("");
        converse("EHLO x\r\n");
        if (!secure) return;
        converse("STARTTLS\r\n");
        start_tls();
        converse("EHLO x\r\n");
    }
    ~BareClient() { close(_fd); }
    BareClient(const BareClient&) = delete;

    /// `text` is one line.
    void send_text(const std::string& text) {
        begin();
        if (_message.empty()) {
            _message =
                "From: ann@a.test\r\nTo: bob@b.test\r\nSubject: Hi\r\n\r\n" + text + "\r\n.\r\n";
        }
        converse(_message.c_str());
    }

    void send_file(const char* path) {
        constexpr size_t block = 57 * 1150;
        constexpr char end[] = "\r\n.\r\n";
        static char bytes[block];
        static char encoded[block * 2];
        begin();
        const int file = open(path, O_RDONLY);
        for (ssize_t count = block; count == block;) {
            count = read(file, bytes, block);
            size_t length = base64_encode(encoded, bytes, static_cast<size_t>(count), 76);
            if (count < static_cast<ssize_t>(block)) {
                std::memcpy(encoded + length, end, sizeof end - 1);
                length += sizeof end - 1;
            }
            put(encoded, length);
        }
        close(file);
        hear();
    }

  private:
    void begin() {
        for (const char* line : {"MAIL FROM:<a>\r\n", "RCPT TO:<b>\r\n", "DATA\r\n"})
            converse(line);
    }

    void start_tls() {
        SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
        _ssl.reset(SSL_new(context), SSL_free);
        SSL_CTX_free(context);
        SSL_set_fd(_ssl.get(), _fd);
        // A record is a write of its own, and the second of a message would wait for the answer to
        // the first.
        const int on = 1;
        setsockopt(_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (SSL_connect(_ssl.get()) != 1) std::abort();
    }

    void converse(const char* line) {
        put(line, std::strlen(line));
        hear();
    }

    void hear() {
        char reply[256];
        pollfd wanted = {_fd, POLLIN, 0};
        if (!_patient && poll(&wanted, 1, 60000) != 1) std::abort();
        const ssize_t got = _ssl == nullptr ? recv(_fd, reply, sizeof reply, 0)
                                            : SSL_read(_ssl.get(), reply, sizeof reply);
        if (got <= 0) std::abort();
    }

    void put(const char* bytes, size_t length) {
        while (length > 0) {
            const ssize_t sent = _ssl == nullptr
                                     ? send(_fd, bytes, length, MSG_NOSIGNAL)
                                     : SSL_write(_ssl.get(), bytes, static_cast<int>(length));
            if (sent <= 0) std::abort();
            bytes += sent;
            length -= static_cast<size_t>(sent);
        }
    }

    const int _fd;
    const bool _patient;
    std::string _message;
    std::shared_ptr<SSL> _ssl;  // null: clear text
};

#endif
