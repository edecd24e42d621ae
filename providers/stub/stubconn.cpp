#include <algorithm>
#include <cerrno>
#include <cstring>

#include "providers/stub/stubstream.h"
#include "providers/stub/stubwire.h"

namespace {

class StubConn : public StubObject {
  public:
    using a_handle = QXCIStreamConnH;
    using an_owner = StubStream;

    explicit StubConn(const StubStream& stream)
        : StubObject(stream.env(), stream.script()), _stream(stream) {}
    a_qxci_result init(const a_qxci_conn_callbacks* callbacks, a_qxci_user_option* options,
                       void* user_data);

    a_qxci_io_result read(a_qxci_byte* buf, size_t len, size_t* got);
    a_qxci_io_result write(const a_qxci_byte* data, size_t len);
    a_qxci_io_result flush();

    /// Tells the peer that there is nothing more to come.
    void close();

  private:
    enum class State { greeting, open, closed, failed };

    a_qxci_result compose_hello(a_qxci_user_option* options);
    bool add_to_hello(const char* text);

    a_qxci_io_result make_ready();
    a_qxci_io_result play_handshake();
    a_qxci_io_result handshake();
    a_qxci_io_result send_hello();
    a_qxci_io_result receive_hello();
    a_qxci_io_result open();

    a_qxci_io_result receive_data(a_qxci_byte* buf, size_t len, size_t* got);
    a_qxci_io_result send_data(const a_qxci_byte* data, size_t len);
    a_qxci_io_result send_at_most(const a_qxci_byte* data, size_t len, size_t most);

    a_qxci_io_result scripted(const a_stub_step& step);
    a_qxci_io_result noting_failure(a_qxci_io_result result);

    const char* own_greeting() const { return _side == QXCI_CLIENT ? "client\n" : "server\n"; }
    const char* peer_greeting() const { return _side == QXCI_CLIENT ? "server\n" : "client\n"; }
    static constexpr size_t greeting_size = 7;

    const StubStream& _stream;
    StubWire _wire;
    a_qxci_conn_callbacks _callbacks = {};
    void* _user_data = nullptr;
    a_qxci_side _side = QXCI_CLIENT;
    State _state = State::greeting;
    size_t _hello_len = 0;  // of the own hello, which waits in the wire's payload
    bool _hello_sent = false;
    char _greeting[greeting_size];  // of the peer
    size_t _greeting_len = 0;
    size_t _taken = 0;  // of a write that blocked
};

a_qxci_result StubConn::init(const a_qxci_conn_callbacks* callbacks, a_qxci_user_option* options,
                             void* user_data) {
    if (prepare(StubOperation::conn, options, stub_tls_options) != QXCI_OK) return QXCI_ERROR;
    if (!_stream.is_started() || !qxci::are_usable(callbacks)) return fail(QxciErrInitError);
    _callbacks = *callbacks;
    _user_data = user_data;
    _wire.set_callbacks(_callbacks, user_data);
    _side = _stream.side();
    if (compose_hello(options) != QXCI_OK) return QXCI_ERROR;
    switch (make_ready()) {
    case QXCI_IO_ERROR:
        return QXCI_ERROR;
    case QXCI_IO_GRACEFUL_CLOSE:
        return fail(QxciErrConnectionClosed);
    default:
        return QXCI_OK;
    }
}

bool StubConn::add_to_hello(const char* text) {
    const size_t len = std::strlen(text);
    if (len > QXCI_STUB_MAX_PAYLOAD - _hello_len) return false;
    std::memcpy(_wire.payload() + _hello_len, text, len);
    _hello_len += len;
    return true;
}

/// In the wire's own buffer, since the options may be gone when the hello is sent.
a_qxci_result StubConn::compose_hello(a_qxci_user_option* options) {
    add_to_hello(own_greeting());
    if (_side == QXCI_SERVER) return QXCI_OK;
    for (; options != nullptr; options = options->next) {
        options->used = true;
        const char* const name = qxci::option_name(*options);
        if (qxci::same_name(name, "stub_script")) continue;
        if (!add_to_hello(name) || !add_to_hello("=") ||
            !add_to_hello(qxci::option_value(*options)) || !add_to_hello("\n")) {
            return fail(QxciErrOptionError, name);
        }
    }
    return QXCI_OK;
}

/// What a step other than `ok` leads to that has nothing to do with the bytes.
a_qxci_io_result StubConn::scripted(const a_stub_step& step) {
    switch (step.outcome) {
    case StubOutcome::fail:
        return fail(step);
    case StubOutcome::block:
        return QXCI_IO_WOULD_BLOCK;
    case StubOutcome::close:
        return QXCI_IO_GRACEFUL_CLOSE;
    default:
        return QXCI_IO_OK;
    }
}

/// Passes a result of the wire on. What fails there is never mended.
a_qxci_io_result StubConn::noting_failure(a_qxci_io_result result) {
    if (result != QXCI_IO_ERROR) return result;
    _state = State::failed;
    return fail(_wire.code(), nullptr, _wire.system_code());
}

/// What comes before every read and write.
a_qxci_io_result StubConn::make_ready() {
    switch (_state) {
    case State::greeting:
        return play_handshake();
    case State::open:
        return QXCI_IO_OK;
    case State::closed:
        return QXCI_IO_GRACEFUL_CLOSE;
    default:
        return noting_failure(QXCI_IO_ERROR);
    }
}

a_qxci_io_result StubConn::play_handshake() {
    const a_stub_step step = next_step(StubOperation::handshake);
    if (step.outcome == StubOutcome::ok) return noting_failure(handshake());
    return step.outcome == StubOutcome::done ? open() : scripted(step);
}

a_qxci_io_result StubConn::handshake() {
    a_qxci_io_result result = _side == QXCI_CLIENT ? send_hello() : receive_hello();
    if (result != QXCI_IO_OK) return result;
    result = _side == QXCI_CLIENT ? receive_hello() : send_hello();
    return result == QXCI_IO_OK ? open() : result;
}

a_qxci_io_result StubConn::send_hello() {
    if (_hello_sent) return QXCI_IO_OK;
    _hello_sent = true;  // or not for good: a wire that failed stays so
    return _wire.send(StubRecord::hello, _hello_len);
}

a_qxci_io_result StubConn::receive_hello() {
    StubRecord record;
    a_qxci_io_result result = _wire.receive_header(&record, QxciErrHandshakeFailed);
    if (result != QXCI_IO_OK) return result;
    if (record != StubRecord::hello) return _wire.fail(QxciErrHandshakeFailed, EPROTO);
    // A client's options stand behind its greeting: for those who read along, not for a server.
    while (_wire.left() != 0) {
        char skipped[256];
        const bool greets = _greeting_len < greeting_size;
        size_t got;
        result =
            _wire.receive_payload(greets ? _greeting + _greeting_len : skipped,
                                  greets ? greeting_size - _greeting_len : sizeof skipped, &got);
        if (result != QXCI_IO_OK) return result;
        if (greets) _greeting_len += got;
    }
    _wire.finish_record();
    const bool good = _greeting_len == greeting_size &&
                      std::memcmp(_greeting, peer_greeting(), greeting_size) == 0;
    return good ? QXCI_IO_OK : _wire.fail(QxciErrHandshakeFailed, EPROTO);
}

a_qxci_io_result StubConn::open() {
    _state = State::open;
    if (_callbacks.log_cb != nullptr) {
        _callbacks.log_cb(_user_data, 0, "QXCI-STUB: connected, nothing is protected", nullptr, 0);
    }
    return QXCI_IO_OK;
}

a_qxci_io_result StubConn::read(a_qxci_byte* buf, size_t len, size_t* got) {
    if (got == nullptr || buf == nullptr || len == 0) return fail(QxciErrOptionError, "buf");
    *got = 0;
    const a_qxci_io_result ready = make_ready();
    if (ready != QXCI_IO_OK) return ready;
    const a_stub_step step = next_step(StubOperation::read);
    switch (step.outcome) {
    case StubOutcome::ok:
        return noting_failure(receive_data(buf, len, got));
    case StubOutcome::max:
        return noting_failure(receive_data(buf, std::min(len, step.max), got));
    case StubOutcome::give:
        *got = std::min(len, std::strlen(step.text));
        std::memcpy(buf, step.text, *got);
        return QXCI_IO_OK;
    default:
        return scripted(step);
    }
}

a_qxci_io_result StubConn::receive_data(a_qxci_byte* buf, size_t len, size_t* got) {
    while (*got == 0) {
        StubRecord record;
        a_qxci_io_result result = _wire.receive_header(&record, QxciErrIOError);
        if (result != QXCI_IO_OK) return result;
        if (record == StubRecord::hello) return _wire.fail(QxciErrIOError, EPROTO);
        if (record == StubRecord::close) {
            _state = State::closed;
            return QXCI_IO_GRACEFUL_CLOSE;
        }
        result = _wire.receive_payload(buf, len, got);
        if (result != QXCI_IO_OK) return result;
        if (_wire.left() == 0) _wire.finish_record();
    }
    return QXCI_IO_OK;
}

a_qxci_io_result StubConn::write(const a_qxci_byte* data, size_t len) {
    // A write that blocked is repeated with the same bytes; fewer cannot be the same.
    if ((data == nullptr && len != 0) || len < _taken) return fail(QxciErrOptionError, "len");
    const a_qxci_io_result ready = make_ready();
    if (ready != QXCI_IO_OK) return ready;
    const a_stub_step step = next_step(StubOperation::write);
    switch (step.outcome) {
    case StubOutcome::ok:
        return noting_failure(send_at_most(data, len, len));
    case StubOutcome::max:
        return noting_failure(send_at_most(data, len, step.max));
    case StubOutcome::done:
        _taken = 0;
        return QXCI_IO_OK;
    default:
        return scripted(step);
    }
}

/// Sends what has not been taken yet, or its first `most` bytes.
a_qxci_io_result StubConn::send_at_most(const a_qxci_byte* data, size_t len, size_t most) {
    const size_t now = std::min(len - _taken, most);
    const a_qxci_io_result result = send_data(data + _taken, now);
    if (result != QXCI_IO_OK) return result;
    _taken += now;
    if (_taken < len) return QXCI_IO_WOULD_BLOCK;
    _taken = 0;
    return QXCI_IO_OK;
}

a_qxci_io_result StubConn::send_data(const a_qxci_byte* data, size_t len) {
    if (data == nullptr) return QXCI_IO_OK;  // write() takes a null pointer for no bytes only
    while (len != 0) {
        const size_t now = std::min<size_t>(len, QXCI_STUB_MAX_PAYLOAD);
        std::memcpy(_wire.payload(), data, now);
        const a_qxci_io_result result = _wire.send(StubRecord::data, now);
        if (result != QXCI_IO_OK) return result;
        data += now;
        len -= now;
    }
    return QXCI_IO_OK;
}

/// Nothing is ever kept back.
a_qxci_io_result StubConn::flush() {
    return scripted(next_step(StubOperation::flush));
}

void StubConn::close() {
    if (_state != State::open) return;
    if (next_step(StubOperation::destroy).outcome == StubOutcome::ok) {
        _wire.send(StubRecord::close, 0);
    }
}

constexpr a_qxci_conn_iface conn_iface = {
    .create_func = qxci::create<StubConn, const a_qxci_conn_callbacks*, a_qxci_user_option*, void*>,
    .read_func = qxci::entry<&StubConn::read>,
    .write_func = qxci::entry<&StubConn::write>,
    .flush_writes_func = qxci::entry<&StubConn::flush>,
    .get_last_error_func = qxci::last_error<StubConn>,
    .destroy_func =
        [](QXCIStreamConnH conn) {
            if (conn != nullptr) qxci::object_of<StubConn>(conn).close();
            qxci::destroy<StubConn>(conn);
        },
};

}  // namespace

a_qxci_result QXCIGetStreamConnIface(a_qxci_conn_iface* iface) {
    return qxci::fill_table(iface, conn_iface);
}
