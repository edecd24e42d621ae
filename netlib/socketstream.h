#ifndef QUOREL_NETLIB_SOCKETSTREAM_H
#define QUOREL_NETLIB_SOCKETSTREAM_H

/// Byte streams over a socket. A stream borrows its socket, which outlives it, and is used by the
/// thread that uses the socket.

#include "utils/etc/utstream.h"

class Socket;

/// Input in blocks of up to 4096 bytes. One read hands out what has arrived; it asks the socket
/// again only when the buffer is empty.
class SockIStream final : public UTPartialBufferedIStream {
  public:
    /// `heap` as in UTPartialBufferedIStream.
    SockIStream(Socket& socket, UTHeap* heap) : UTPartialBufferedIStream(heap), _socket(socket) {}

    /// Also shuts the socket down for receiving.
    void set_eof() override;

    /// Receives once. A socket that has nothing now (EAGAIN) leaves the stream readable; the end
    /// of the connection and every other error, a time-out included, end it.
    void refill() override;

  private:
    Socket& _socket;  // not owned
};

/// Output without a buffer: every write is a send of its own.
class SockOStream final : public UTOStream {
  public:
    explicit SockOStream(Socket& socket) : _socket(socket) {}

    /// What the socket's send() returns; (size_t)-1 when it failed, after which it is unknown how
    /// much has gone. A failure does not end the stream.
    size_t do_put(const a_byte* data, size_t n) override;

  private:
    Socket& _socket;  // not owned
};

#endif
