#ifndef QUOREL_KOVCERT_TLSSESSION_H
#define QUOREL_KOVCERT_TLSSESSION_H

/// One TLS connection over a provider's stream. The provider speaks the protocol; the owner moves
/// the raw bytes (tlscallbacks.h) and reads and writes plain text here, mostly through the streams
/// of tlsstream.h.
///
///     std::unique_ptr<DBQXCIStream> stream(env.CreateStreamWithID(&callbacks, nullptr, 3, &err));
///     stream->Init(QXCI_CLIENT, nullptr);
///     TlsConnection conn(stream.get(), &env, &owner_callbacks, context, nullptr, &err, options);
///     if (conn.IsValid()) conn.write(...);
///
/// The handshake is part of the creation, as far as the provider can go without waiting, and of the
/// first read or write. Every result is a code, which getErrorString() explains. A connection that
/// was shut down, here or by the peer, stays so: every call answers QxciErrConnectionClosed. Other
/// failures do not shut it down.
///
/// Threads. read() and write() hold the connection's mutex but for the yield, in which another
/// thread may feed the connection. Such a thread holds the mutex (getMutex(), giveMutex()) around
/// receiveBytes() and getReceivedBytes(), which do not take it: the provider calls back under it.
/// shut_down() may be called at any time. What getLastError() and getErrorString() tell is for the
/// thread that made the last call.

#include <atomic>
#include <cstddef>
#include <memory>

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/qxci/qxcierror.h"
#include "kovcert/qxci/qxcimutex.h"
#include "kovcert/tlscallbacks.h"
#include "kovcert/tlsreadbuffer.h"
#include "utils/etc/uttypes.h"

class UTLangStringBase;

class TlsConnection {
  public:
    /// `stream` has been initialised. It, `env` and `callbacks` are not owned and outlive the
    /// connection, `user_context` and `yield_ref` are for the callbacks. `options` (see
    /// a_qxci_user_option, may be null) are needed during the call only. When the provider refuses,
    /// because the peer's certificate is no good for instance, *err says why and the connection is
    /// not valid.
    TlsConnection(DBQXCIStream* stream, DBQXCIEnvironment* env, const TlsCallbacks* callbacks,
                  void* user_context, void* yield_ref, DBQXCIError* err,
                  a_qxci_user_option* options);
    /// Lets the provider tell the peer, if the session still stands, so the callbacks are still
    /// there. Leaves the stream alone.
    ~TlsConnection();
    TlsConnection(const TlsConnection&) = delete;
    TlsConnection& operator=(const TlsConnection&) = delete;

    /// False when it could not be made; calls then fail with QxciErrUnknown.
    a_bool IsValid() const { return _is_valid; }

    /// Writes all of `len` bytes, in as many records as it takes, or fails, after which it is
    /// unknown how much has gone. While the provider has to wait, it is asked again for 31 seconds:
    /// then QxciErrHandshakeTimedOut or, the handshake being done, QxciErrIOError. A server does
    /// not write before the handshake: QxciErrHandshakeFailed.
    a_dbqxci_error write(const void* data, size_t len);

    /// Reads up to *len bytes, and as many unless setPartialIO(); *len becomes how many were read,
    /// in failure too. QxciErrWouldBlock: no more is there now. A peer that delivers so slowly
    /// that it takes 31 seconds gives QxciErrIOError.
    a_dbqxci_error read(char* buf, size_t* len);

    /// With true, a read returns as soon as any bytes have arrived. False at the start.
    void setPartialIO(a_bool partial) { _partialIO = partial; }

    /// Keeps a copy of raw bytes for a provider whose owner has no readFunc. QxciErrNoMemory.
    a_dbqxci_error receiveBytes(const char* data, size_t len);
    /// Takes exactly `len` of them, oldest first: *got is `len`. QxciErrWouldBlock, and *got
    /// untouched, while there are fewer or none.
    a_dbqxci_error getReceivedBytes(char* buf, size_t len, size_t* got);

    /// Makes this and every later call fail.
    void shut_down() { _shutdown = true; }

    a_bool doneHandshake() const { return _handshake_done; }
    a_bool isClientConnection() const;
    uint32 getAlgorithmID() const;

    /// The result of the last call, with the provider's parameters where it was the provider's.
    const DBQXCIError* getLastError() const { return &_error; }
    /// Its text, or once the connection was shut down that of QxciErrConnectionClosed. `buf` of
    /// `len` bytes is left empty after success, and untouched without `lang`.
    void getErrorString(UTLangStringBase* lang, char* buf, size_t len);

    void* getUserContext() const { return _userContext; }
    const TlsCallbacks* getCallbacks() const { return _callbacks; }

    /// Not recursive. Without memory for a mutex there is none, and these do nothing.
    void getMutex() { _Mutex().get(); }
    void giveMutex() { _Mutex().give(); }

  private:
    a_dbqxci_error _Write(const void* data, size_t len);
    a_dbqxci_error _Read(char* buf, size_t* len);
    a_dbqxci_error _Failed(a_qxci_io_result result);
    a_dbqxci_error _ProviderError();
    a_dbqxci_error _TimedOut() const;
    a_dbqxci_error _Record(a_dbqxci_error code);
    void _Yield();
    DBQXCIBaseMutex& _Mutex() { return _mutex != nullptr ? *_mutex : _no_mutex; }

    void* _userContext;
    DBQXCIError _error;           // of the last call
    TlsReadBuffer_list _buffers;  // owned, oldest first
    size_t _total_saved = 0;      // bytes in _buffers
    a_bool _handshake_done = false;
    const TlsCallbacks* _callbacks;  // not owned
    void* _yield_ref;
    DBQXCIBaseMutex _no_mutex;
    std::unique_ptr<DBQXCIMutex> _mutex;  // null: _no_mutex
    std::atomic<a_bool> _shutdown = false;
    DBQXCIStream* _qxci_stream;                           // not owned
    std::unique_ptr<DBQXCIStreamConn> _qxci_stream_conn;  // null when not valid
    a_bool _is_valid;
    a_bool _partialIO = false;
};

#endif
