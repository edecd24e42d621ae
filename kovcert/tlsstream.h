#ifndef QUOREL_KOVCERT_TLSSTREAM_H
#define QUOREL_KOVCERT_TLSSTREAM_H

/// Byte streams over a TLS connection, in place of those over its socket. A stream borrows its
/// connection, which outlives it, and is used by the thread that uses the connection.

#include "utils/etc/utstream.h"

class TlsConnection;

/// Input in blocks of up to 4096 bytes. One read hands out what has arrived. It may give nothing
/// though the stream is not at its end, while a record is incomplete: callers then read again.
class TlsIStream final : public UTPartialBufferedIStream {
  public:
    /// Makes reads of the connection return what has arrived. `heap` as in
    /// UTPartialBufferedIStream.
    TlsIStream(TlsConnection* conn, UTHeap* heap);

    /// Also shuts the connection down, so that nothing more is written to it either.
    void set_eof() override;

    /// Reads once. A connection that has nothing now leaves the stream as it is; the end of the
    /// session and every error end it.
    void refill() override;

  private:
    TlsConnection* _conn;  // not owned
};

/// Output without a buffer: every put() is one write of the connection, whatever its size, and
/// nothing is kept back.
class TlsOStream final : public UTOStream {
  public:
    explicit TlsOStream(TlsConnection* conn) : _conn(conn) {}

    /// All of `n`, or (size_t)-1 on failure, after which it is unknown how much has gone. A failure
    /// does not end the stream.
    size_t do_put(const a_byte* data, size_t n) override;

  private:
    TlsConnection* _conn;  // not owned
};

#endif
