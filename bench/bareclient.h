#ifndef QUOREL_BENCH_BARECLIENT_H
#define QUOREL_BENCH_BARECLIENT_H

#include <cstdlib>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "utils/etc/base64.h"

/// What any client has to do at least to send a file: read, encode, send. It looks at no answer,
/// and at no certificate.
class BareClient {
  public:
    BareClient(int port, bool secure) : _fd(socket(AF_INET, SOCK_STREAM, 0)) {
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

    void send_file(const char* path) {
        constexpr size_t block = 57 * 1150;
        static char bytes[block];
        static char encoded[block * 2];
        for (const char* line : {"MAIL FROM:<a>\r\n", "RCPT TO:<b>\r\n", "DATA\r\n"})
            converse(line);
        const int file = open(path, O_RDONLY);
        for (ssize_t count = 0; (count = read(file, bytes, block)) > 0;)
            put(encoded, base64_encode(encoded, bytes, static_cast<size_t>(count), 76));
        close(file);
        converse("\r\n.\r\n");
    }

  private:
    void start_tls() {
        SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
        _ssl.reset(SSL_new(context), SSL_free);
        SSL_CTX_free(context);
        SSL_set_fd(_ssl.get(), _fd);
        if (SSL_connect(_ssl.get()) != 1) std::abort();
    }

    void converse(const char* line) {
        char reply[256];
        put(line, std::strlen(line));
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
    std::shared_ptr<SSL> _ssl;  // null: clear text
};

#endif
