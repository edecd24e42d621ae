#include "providers/openssl/tlsstream.h"

#include "providers/openssl/opensslerror.h"
#include "providers/openssl/tlsconn.h"
#include "providers/openssl/trust.h"

namespace {

/// Only TLS 1.2 and 1.3; every connection does a full handshake, whose certificate it checks, and
/// whose keys stay secret when that certificate's does not: no RSA key transport. Level 2 asks for
/// 112 bits of security, whatever this OpenSSL was built to ask for. False when there is no memory.
bool restrict_protocol(SSL_CTX& context) {
    SSL_CTX_set_security_level(&context, 2);
    SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(&context, TLS1_3_VERSION);
    SSL_CTX_set_options(&context,
                        SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(&context, 0);
    // A write that blocked may be repeated from elsewhere in the owner's memory, and a session at
    // rest keeps no buffers.
    SSL_CTX_set_mode(&context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                   SSL_MODE_NO_AUTO_CHAIN | SSL_MODE_RELEASE_BUFFERS);
    return SSL_CTX_set_cipher_list(&context, "DEFAULT:!kRSA:!PSK:!SRP") == 1;
}

}  // namespace

bool a_credentials::load(const qxci::Memory& memory, const Settings& settings, bool inherited,
                         qxci::ErrorRecord& error) {
    const auto wanted = [&](a_setting setting) {
        return inherited ? settings.get(setting).text != nullptr : settings.has(setting);
    };
    if (wanted(SETTING_TRUSTED)) {
        trust = load_trust(memory, settings.get(SETTING_TRUSTED), error);
        if (trust == nullptr) return false;
    }
    if (!wanted(SETTING_IDENTITY)) {
        return !settings.has(SETTING_IDENTITY_PASSWORD) ||
               error.fail(QxciErrOptionError, settings.get(SETTING_IDENTITY_PASSWORD).option);
    }
    return identity.load(memory, settings.get(SETTING_IDENTITY),
                         settings.get(SETTING_IDENTITY_PASSWORD).text, error);
}

a_qxci_result TlsStream::start(a_qxci_side side, a_qxci_user_option* options) {
    if (ready() || (side != QXCI_CLIENT && side != QXCI_SERVER)) return fail(QxciErrInitError);
    _side = side;
    if (_settings.read(options, SCOPE_OBJECT, error()) &&
        _credentials.load(memory(), _settings, true, error()) && make_context()) {
        return QXCI_OK;
    }
    finish();
    return QXCI_ERROR;
}

bool TlsStream::make_context() {
    _context.reset(SSL_CTX_new(_side == QXCI_CLIENT ? TLS_client_method() : TLS_server_method()));
    if (_context == nullptr || !restrict_protocol(*_context)) {
        return fail_openssl(error(), QxciErrInitError);
    }
    SSL_CTX_set_cert_verify_callback(_context.get(), TlsConn::verify_entry, nullptr);
    return true;
}

a_qxci_result TlsStream::finish() {
    _context.reset();
    _credentials = a_credentials();
    _settings.clear();
    return QXCI_OK;
}
