#include "providers/openssl/tlsconn.h"

#include <cstdio>
#include <cstring>

#include "providers/openssl/opensslerror.h"
#include "providers/openssl/peercheck.h"

namespace {

enum a_log_level { LOG_FAILURE = 0, LOG_SESSION = 1 };

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_label(const char* label, size_t len) {
    if (len == 0 || len > 63 || label[0] == '-' || label[len - 1] == '-') return false;
    for (size_t i = 0; i < len; ++i) {
        if (!is_letter(label[i]) && !is_digit(label[i]) && label[i] != '-') return false;
    }
    return true;
}

/// True for a name that can stand in the server name indication (RFC 6066 section 3): labels of
/// letters, digits and hyphens (RFC 5890 section 2.3.1), no dot at the end, no IP address.
bool is_host_name(const char* name) {
    if (std::strlen(name) > 253) return false;
    const char* last = name;
    for (const char* dot; (dot = std::strchr(last, '.')) != nullptr; last = dot + 1) {
        if (!is_label(last, static_cast<size_t>(dot - last))) return false;
    }
    // No top-level domain consists of digits, but every dotted IPv4 address ends in them.
    return is_label(last, std::strlen(last)) && last[std::strspn(last, "0123456789")] != '\0';
}

/// Asks the owner whether it welcomes a client whose certificate has been verified.
bool is_welcome(const a_qxci_conn_callbacks& callbacks, void* user_data, const X509* certificate) {
    if (callbacks.check_client_cert_cb == nullptr) return true;
    unsigned char* der = nullptr;
    const int len = i2d_X509(certificate, &der);
    if (len < 0) return false;
    const int answer = callbacks.check_client_cert_cb(user_data, der, static_cast<unsigned>(len));
    OPENSSL_free(der);
    return answer != 0;
}

}  // namespace

a_qxci_result TlsConn::init(const a_qxci_conn_callbacks* callbacks, a_qxci_user_option* options,
                            void* user_data) {
    if (!_stream.ready() || !qxci::are_usable(callbacks)) return fail(QxciErrInitError);
    _callbacks = *callbacks;
    _user_data = user_data;
    if (!_settings.read(options, SCOPE_OBJECT, error()) ||
        !_credentials.load(memory(), _settings, false, error()) || !make_session() ||
        !set_credentials() || !set_peer_name()) {
        return QXCI_ERROR;
    }
    if (_stream.side() == QXCI_SERVER) return QXCI_OK;

    const a_qxci_io_result result = begin();
    return result == QXCI_IO_OK || result == QXCI_IO_WOULD_BLOCK ? QXCI_OK : QXCI_ERROR;
}

bool TlsConn::make_session() {
    if (!_bio.init(_user_data)) return error().fail(QxciErrNoMemory);
    _ssl = _stream.make_session();
    if (_ssl == nullptr) return fail_openssl(error(), QxciErrInitError);
    BioPtr bio = _bio.make_bio();
    if (bio == nullptr) return error().fail(QxciErrNoMemory);
    // The session takes one reference for both directions (SSL_set_bio(3)).
    SSL_set_bio(_ssl.get(), bio.get(), bio.get());
    static_cast<void>(bio.release());
    if (SSL_set_app_data(_ssl.get(), this) != 1) return error().fail(QxciErrNoMemory);
    SSL_set_msg_callback(_ssl.get(), note_incoming);
    SSL_set_msg_callback_arg(_ssl.get(), &_bio);
    if (_stream.side() == QXCI_CLIENT) {
        SSL_set_connect_state(_ssl.get());
    } else {
        SSL_set_accept_state(_ssl.get());
    }
    return true;
}

bool TlsConn::set_credentials() {
    const a_credentials& shared = _stream.credentials();
    const Identity& identity =
        _credentials.identity.loaded() ? _credentials.identity : shared.identity;
    if (_stream.side() == QXCI_SERVER && !identity.loaded()) {
        return error().fail(QxciErrMissingIdentityFile);
    }
    X509_STORE* const trust =
        _credentials.trust != nullptr ? _credentials.trust.get() : shared.trust.get();
    if (!identity.apply(*_ssl, error()) || !demand_certificate(trust)) return false;
    if (trust == nullptr || SSL_set1_verify_cert_store(_ssl.get(), trust) == 1) return true;
    return error().fail(QxciErrNoMemory);
}

/// A client always verifies the server. A server asks for a certificate when it knows whom to
/// trust, and then insists on one.
bool TlsConn::demand_certificate(const X509_STORE* trust) {
    bool demands = _stream.side() == QXCI_CLIENT;
    for (a_setting setting : {SETTING_COMPANY, SETTING_UNIT, SETTING_NAME}) {
        demands = demands || _settings.get(setting).text != nullptr;
    }
    if (trust == nullptr) return !demands || error().fail(QxciErrMissingCertFile);
    // Nor need what is trusted be a root's: an authority in between or the peer's own will do.
    SSL_set_verify(_ssl.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    X509_VERIFY_PARAM_set_flags(SSL_get0_param(_ssl.get()), X509_V_FLAG_PARTIAL_CHAIN);
    return true;
}

bool TlsConn::set_peer_name() {
    const char* const name = _settings.get(SETTING_NAME).text;
    if (_stream.side() != QXCI_CLIENT || name == nullptr || !is_host_name(name)) return true;
    return SSL_set_tlsext_host_name(_ssl.get(), name) == 1 || error().fail(QxciErrNoMemory);
}

void TlsConn::note_incoming(int written, int, int type, const void*, size_t, SSL*, void* to) {
    CallbackBio& bio = *static_cast<CallbackBio*>(to);
    if (written == 0 && type == SSL3_RT_HEADER) bio.note_record();
    if (written == 0 && type == SSL3_RT_HANDSHAKE) bio.note_message();
}

int TlsConn::verify_entry(X509_STORE_CTX* context, void*) {
    const SSL* const ssl = static_cast<SSL*>(
        X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
    if (static_cast<TlsConn*>(SSL_get_app_data(ssl))->accept_peer(*context)) return 1;
    // The alert that the peer gets is chosen by the result, also where only a demand was not met.
    if (X509_STORE_CTX_get_error(context) == X509_V_OK) {
        X509_STORE_CTX_set_error(context, X509_V_ERR_APPLICATION_VERIFICATION);
    }
    return 0;
}

bool TlsConn::accept_peer(X509_STORE_CTX& context) {
    if (!check_peer(context, _settings, error())) return false;
    if (_stream.side() == QXCI_CLIENT) return true;
    if (is_welcome(_callbacks, _user_data, X509_STORE_CTX_get0_cert(&context))) return true;
    return error().fail(QxciErrBadCert);
}

/// The start of every operation: what it comes to when the session is over, else QXCI_IO_OK.
a_qxci_io_result TlsConn::standing() {
    if (_state == BROKEN) return QXCI_IO_ERROR;
    if (_state != ENDED) return QXCI_IO_OK;
    error().fail(QxciErrConnectionClosed);
    return QXCI_IO_GRACEFUL_CLOSE;
}

/// The start of reads and writes, the handshake included. Anything but QXCI_IO_OK ends them.
a_qxci_io_result TlsConn::begin() {
    if (const a_qxci_io_result result = standing(); result != QXCI_IO_OK) return result;
    // judge() looks for new errors. To clear none would take longer than to encrypt a command.
    if (ERR_peek_error() != 0) ERR_clear_error();
    return _state == OPEN ? QXCI_IO_OK : handshake();
}

a_qxci_io_result TlsConn::handshake() {
    const int result = SSL_do_handshake(_ssl.get());
    if (result != 1) return judge(result, QxciErrHandshakeFailed);
    if (!_bio.flush()) return broken();
    _state = OPEN;
    _bio.note_data();
    log_session();
    return QXCI_IO_OK;
}

/// What became of an operation that did not succeed. `code` is for what OpenSSL reports.
a_qxci_io_result TlsConn::judge(int result, a_dbqxci_error code) {
    const int reason = SSL_get_error(_ssl.get(), result);
    if (reason == SSL_ERROR_ZERO_RETURN) {
        _state = ENDED;
        return standing();
    }
    if (reason == SSL_ERROR_SSL || _bio.flooded()) {
        const unsigned long newest = ERR_peek_last_error();
        fail_openssl(error(), code);
        return broken(newest);
    }
    // OpenSSL waits also for a peer that has been silent for too long; and what it has for the peer
    // goes out first, since the peer may be waiting for that.
    const bool waits = reason == SSL_ERROR_WANT_READ && !_bio.gave_up();
    return waits && _bio.flush() ? QXCI_IO_WOULD_BLOCK : broken();
}

/// The session cannot go on; the reason is that of the connection unless there is one already. The
/// log gets OpenSSL's error.
a_qxci_io_result TlsConn::broken(unsigned long openssl_error) {
    _state = BROKEN;
    if (_bio.gave_up()) error().fail(QxciErrConnectionClosed);
    error().fail(QxciErrIOError);
    char text[256] = "TLS: the connection is broken";
    if (openssl_error != 0) ERR_error_string_n(openssl_error, text, sizeof text);
    log(LOG_FAILURE, text);
    return QXCI_IO_ERROR;
}

a_qxci_io_result TlsConn::read(a_qxci_byte* buf, size_t len, size_t* got) {
    *got = 0;
    if (const a_qxci_io_result result = begin(); result != QXCI_IO_OK) return result;
    if (len == 0) return QXCI_IO_OK;
    const int result = SSL_read_ex(_ssl.get(), buf, len, got);
    if (result != 1) return judge(result, QxciErrOpenSSLError);
    _bio.note_data();
    _bio.flush();  // an answer to the peer; should it fail, the next operation will say so
    return QXCI_IO_OK;
}

a_qxci_io_result TlsConn::write(const a_qxci_byte* data, size_t len) {
    if (const a_qxci_io_result result = begin(); result != QXCI_IO_OK) return result;
    while (_taken < len) {
        size_t count = 0;
        // After a wait OpenSSL wants the same bytes again (SSL_write(3)), from where _taken says.
        const int result = SSL_write_ex(_ssl.get(), data + _taken, len - _taken, &count);
        if (result != 1) return judge(result, QxciErrOpenSSLError);
        _taken += count;
        _bio.note_sent();
    }
    _taken = 0;
    return _bio.flush() ? QXCI_IO_OK : broken();
}

/// Writes keep nothing back.
a_qxci_io_result TlsConn::flush() {
    return standing();
}

void TlsConn::log(int level, const char* text) const {
    if (_callbacks.log_cb == nullptr) return memory().log(level, text);
    _callbacks.log_cb(_user_data, level, text, nullptr, 0);
}

void TlsConn::log_session() const {
    const X509* const peer = SSL_get0_peer_certificate(_ssl.get());
    const BioPtr subject = peer == nullptr ? nullptr : subject_text(*peer);
    char text[512];
    std::snprintf(text, sizeof text, "%s with %s, peer %s", SSL_get_version(_ssl.get()),
                  SSL_get_cipher_name(_ssl.get()),
                  subject == nullptr ? "without certificate" : text_of(*subject));
    log(LOG_SESSION, text);
}

TlsConn::~TlsConn() {
    // A handshake has nothing to end yet, and after a fault nothing may be sent (SSL_shutdown(3)).
    if (_state != OPEN && _state != ENDED) return;
    ERR_clear_error();
    SSL_shutdown(_ssl.get());
    _bio.flush();
}
