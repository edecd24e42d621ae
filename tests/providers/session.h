#ifndef QUOREL_TESTS_PROVIDERS_SESSION_H
#define QUOREL_TESTS_PROVIDERS_SESSION_H

#include "tests/kovcert/qxci/owner.h"
#include "tests/providers/wire.h"

/// A code and its first parameter.
using a_failure = std::pair<unsigned, std::string>;
inline const a_failure no_failure = {0, ""};

inline a_failure failure_of(const a_qxci_error& error) {
    const char* const parm = error.parm_list == nullptr ? nullptr : error.parm_list[0];
    return {error.code, parm == nullptr ? "" : parm};
}

/// A stream and one connection on it, over a wire. What the newest failure was is kept, as code and
/// parameter and in the words of describe().
class Session {
  public:
    Session(Provider& provider, Wire& wire, const a_setting_list& settings = {},
            a_qxci_side side = QXCI_CLIENT, const a_setting_list& stream_settings = {})
        : options(settings), _p(provider) {
        const bool rsa = _p.env_iface.stream_alg_id_func(_p.env, QXCI_STREAM_RSA_TLS);
        a_qxci_error reason = {};
        stream = _p.streams.create_with_id_func(
            _p.env, nullptr, nullptr, rsa ? QXCI_STREAM_RSA_TLS : QXCI_STREAM_ECC_TLS, &reason);
        if (stream != nullptr &&
            _p.streams.init_func(stream, side, Options(stream_settings).head()) != QXCI_OK) {
            note(*_p.streams.get_last_error_func(stream));
            return;
        }
        if (stream != nullptr) {
            conn = _p.conns.create_func(stream, &wire.callbacks, options.head(), &wire, &reason);
        }
        note(reason);
        _p.error_iface.destroy_func(_p.env, &reason);
    }
    ~Session() {
        close();
        _p.streams.destroy_func(stream);
    }
    void close() { _p.conns.destroy_func(std::exchange(conn, nullptr)); }

    a_qxci_io_result write(const std::string& data) {
        return noting(_p.conns.write_func(conn, reinterpret_cast<const a_qxci_byte*>(data.data()),
                                          data.size()));
    }
    a_qxci_io_result flush() { return noting(_p.conns.flush_writes_func(conn)); }
    /// Puts what is there behind `text`.
    a_qxci_io_result read(size_t room = 70000) {
        std::string buf(room, '\0');
        size_t got = 0;
        const a_qxci_io_result result =
            _p.conns.read_func(conn, reinterpret_cast<a_qxci_byte*>(buf.data()), room, &got);
        text.append(buf, 0, got);
        return noting(result);
    }

    Options options;  // the connection's, of texts that live longer
    QXCIStreamH stream;
    QXCIStreamConnH conn = nullptr;
    a_failure failure;
    std::string error;
    std::string text;

  private:
    a_qxci_io_result noting(a_qxci_io_result result) {
        note(*_p.conns.get_last_error_func(conn));
        return result;
    }
    void note(const a_qxci_error& newest) {
        failure = failure_of(newest);
        error = describe(&newest);
    }

    Provider& _p;
};

#endif
