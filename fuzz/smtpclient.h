#ifndef QUOREL_FUZZ_SMTPCLIENT_H
#define QUOREL_FUZZ_SMTPCLIENT_H

// A mail client without a connection, for targets that play the server.

#include "fuzz/fuzzed.h"
#include "netlib/netsmtp.h"
#include "netlib/socketstream.h"

/// Keeps what is sent. What is received comes from a target's own recv().
class FuzzedSocket : public Socket {
  public:
    using Socket::send;

    int send(const char* buf, unsigned int len) override {
        sent.append(buf, len);
        return static_cast<int>(len);
    }
    void shutdown(a_socket_shutdown_flag) override {}

    std::string sent;
};

/// The session that Connect() would open over the socket.
class FuzzedClient : public SMTPClient {
  public:
    explicit FuzzedClient(Socket& socket) {
        _istrm = std::make_unique<SockIStream>(socket, &_heap);
        _ostrm = std::make_unique<SockOStream>(socket);
    }
    bool start(const char* sender, const char* name, const char* user, const char* password) {
        a_reply reply;
        return _ProcessResponse(reply, false) == SMTP_OK && reply.code == 220 &&
               _SMTPConnect(reply, sender, name, 0) == SMTP_OK && reply.code == 250 &&
               _SMTPAuthenticate(reply, user, password) == SMTP_OK && reply.code == 235;
    }
};

#endif
