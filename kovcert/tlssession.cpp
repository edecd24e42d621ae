#include "kovcert/tlssession.h"

#include <new>
#include <optional>

#include "utils/unix/timelib.h"
#include "utils/unix/utmutex.h"

namespace {

/// How long a provider may have to wait for the peer. The clock is read once there is something to
/// wait for.
class Patience {
  public:
    void begin() {
        if (!_start) _start = a_timer_tick::now();
    }

    // A clock that goes backwards leaves all the time in the world.
    bool exhausted() const {
        constexpr uint64 limit_in_ms = 31000;
        const a_timer_tick now = a_timer_tick::now();
        return now >= *_start && (now - *_start).milliSeconds() >= limit_in_ms;
    }

  private:
    std::optional<a_timer_tick> _start;
};

}  // namespace

TlsConnection::TlsConnection(DBQXCIStream* stream, DBQXCIEnvironment* env,
                             const TlsCallbacks* callbacks, void* user_context, void* yield_ref,
                             DBQXCIError* err, a_qxci_user_option* options)
    : _userContext(user_context), _callbacks(callbacks), _yield_ref(yield_ref),
      _qxci_stream(stream),
      _qxci_stream_conn(stream->CreateConn(&tls_conn_callbacks, options, this, err)),
      _is_valid(_qxci_stream_conn != nullptr) {
    _error.createMutex(env);  // the provider may report from threads of its own
    if (!_is_valid) _error.CloneFrom(err);
    _mutex.reset(env->createMutex());
}

// The provider's connection goes first: saying good-bye, it may still call back.
TlsConnection::~TlsConnection() {
    _qxci_stream_conn.reset();
    _buffers.delete_all();
}

a_dbqxci_error TlsConnection::write(const void* data, size_t len) {
    const UTLock lock(_Mutex());
    _error.Clear();
    return _error.setErrorCode(_Write(data, len));
}

a_dbqxci_error TlsConnection::read(char* buf, size_t* len) {
    const UTLock lock(_Mutex());
    _error.Clear();
    return _error.setErrorCode(_Read(buf, len));
}

a_dbqxci_error TlsConnection::_Write(const void* data, size_t len) {
    if (_shutdown) return QxciErrConnectionClosed;
    if (!_is_valid) return QxciErrUnknown;
    // The client speaks first (RFC 8446, section 2); until then a server has no keys to write with.
    if (!isClientConnection() && !_handshake_done) return QxciErrHandshakeFailed;
    Patience patience;
    const auto* const bytes = static_cast<const a_qxci_byte*>(data);
    a_qxci_io_result result = QXCI_IO_OK;
    // Always the whole text: the provider knows how much of it has gone.
    while ((result = _qxci_stream_conn->Write(bytes, len)) == QXCI_IO_WOULD_BLOCK) {
        if (_shutdown) return QxciErrConnectionClosed;
        patience.begin();
        _Yield();
        if (patience.exhausted()) return _TimedOut();
    }
    if (result != QXCI_IO_OK) return _shutdown ? QxciErrConnectionClosed : _Failed(result);
    _handshake_done = true;
    return QxciErrOK;
}

a_dbqxci_error TlsConnection::_Read(char* buf, size_t* len) {
    const size_t room = *len;
    *len = 0;
    if (_shutdown) return QxciErrConnectionClosed;
    if (!_is_valid) return QxciErrUnknown;
    Patience patience;
    for (;;) {
        auto* const position = reinterpret_cast<a_qxci_byte*>(buf + *len);
        const size_t remaining = room - *len;
        size_t got = 0;
        const a_qxci_io_result result = _qxci_stream_conn->Read(position, remaining, &got);
        if (result != QXCI_IO_OK) return _Failed(result);
        _handshake_done = true;
        // Bytes that are enough for the caller count even if somebody shut down meanwhile.
        if (_shutdown && !_partialIO && got < remaining) return QxciErrConnectionClosed;
        *len += got;
        if (_partialIO || got >= remaining) return QxciErrOK;
        patience.begin();
        _Yield();
        if (patience.exhausted()) return _TimedOut();
    }
}

a_dbqxci_error TlsConnection::_Failed(a_qxci_io_result result) {
    if (result == QXCI_IO_WOULD_BLOCK)
        return _shutdown ? QxciErrConnectionClosed : QxciErrWouldBlock;
    if (result != QXCI_IO_GRACEFUL_CLOSE) return _ProviderError();
    // Both directions at once: TLS 1.3 would let this side write on (RFC 8446, section 6.1).
    shut_down();
    return QxciErrConnectionClosed;
}

// A provider that fails without a reason has failed all the same.
a_dbqxci_error TlsConnection::_ProviderError() {
    _error.CloneFrom(_qxci_stream_conn->GetLastError());
    const auto code = static_cast<a_dbqxci_error>(_error.getErrorCode());
    return code != QxciErrOK ? code : QxciErrUnknown;
}

a_dbqxci_error TlsConnection::_TimedOut() const {
    return _handshake_done ? QxciErrIOError : QxciErrHandshakeTimedOut;
}

a_dbqxci_error TlsConnection::_Record(a_dbqxci_error code) {
    _error.Clear();
    return _error.setErrorCode(code);
}

// Without the mutex, so that the thread that feeds the connection gets a turn.
void TlsConnection::_Yield() {
    giveMutex();
    if (_callbacks->yieldFunc != nullptr) _callbacks->yieldFunc(_yield_ref);
    getMutex();
}

a_dbqxci_error TlsConnection::receiveBytes(const char* data, size_t len) {
    if (_shutdown) return _Record(QxciErrConnectionClosed);
    // A copy, since the owner uses its memory for the next bytes.
    std::unique_ptr<TlsReadBuffer> piece(new (std::nothrow) TlsReadBuffer(data, len));
    if (piece == nullptr || !piece->is_valid()) return _Record(QxciErrNoMemory);
    _buffers.append(piece.release());
    _total_saved += len;
    return _Record(QxciErrOK);
}

a_dbqxci_error TlsConnection::getReceivedBytes(char* buf, size_t len, size_t* got) {
    if (_shutdown) return _Record(QxciErrConnectionClosed);
    if (_total_saved < len || _total_saved == 0) return _Record(QxciErrWouldBlock);
    size_t count = 0;
    while (count < len) {
        TlsReadBuffer* const oldest = _buffers.get_first();
        count += oldest->read(buf + count, len - count);
        if (oldest->finished()) delete oldest;  // which takes it off the list
    }
    _total_saved -= len;
    *got = len;
    return _Record(QxciErrOK);
}

a_bool TlsConnection::isClientConnection() const {
    return _qxci_stream->GetSide() == QXCI_CLIENT;
}

uint32 TlsConnection::getAlgorithmID() const {
    return _qxci_stream->GetAlgorithmID();
}

void TlsConnection::getErrorString(UTLangStringBase* lang, char* buf, size_t len) {
    // Shut down between two calls, the record still tells about the call before.
    if (!_shutdown) {
        _error.GetString(lang, buf, len, nullptr);
        return;
    }
    DBQXCIError closed;
    closed.setErrorCode(QxciErrConnectionClosed);
    closed.GetString(lang, buf, len, nullptr);
}
