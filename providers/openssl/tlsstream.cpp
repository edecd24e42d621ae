#include "providers/openssl/tlsstream.h"

#include <new>

#include "providers/openssl/algorithm.h"
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
    SSL_CTX_set_mode(&context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                   SSL_MODE_NO_AUTO_CHAIN);
    return SSL_CTX_set_cipher_list(&context, "DEFAULT:!kRSA:!PSK:!SRP") == 1;
}

QXCIStreamH create(QXCIEnvironmentH handle, bool known, a_qxci_error* error) {
    ProviderEnv& env = *ProviderEnv::of(handle);
    ErrorRecord reason(env.memory);
    if (!known) {
        reason.fail(QxciErrBadEncryptionAlgorithm);
        reason.give_to(error);
        return nullptr;
    }
    void* const place = env.memory.alloc(sizeof(TlsStream));
    if (place != nullptr) return (new (place) TlsStream(env))->handle();
    reason.fail(QxciErrNoMemory);
    reason.give_to(error);
    return nullptr;
}

/// The stream has nothing to log that its connections do not.
QXCIStreamH create_by_name(QXCIEnvironmentH env, const a_qxci_stream_callbacks*, void*,
                           const char* name, a_qxci_error* error) {
    return create(env, env_iface.stream_alg_func(env, name), error);
}

QXCIStreamH create_with_id(QXCIEnvironmentH env, const a_qxci_stream_callbacks*, void*,
                           a_qxci_byte id, a_qxci_error* error) {
    return create(env, env_iface.stream_alg_id_func(env, id), error);
}

a_qxci_result init(QXCIStreamH handle, a_qxci_side side, a_qxci_user_option* options) {
    TlsStream& stream = *TlsStream::of(handle);
    stream.error.clear();
    return stream.init(side, options) ? QXCI_OK : QXCI_ERROR;
}

a_qxci_byte algorithm_id(QXCIStreamH) {
    return provider_algorithm.id;
}

a_qxci_result fini(QXCIStreamH handle) {
    TlsStream& stream = *TlsStream::of(handle);
    stream.error.clear();
    stream.fini();
    return QXCI_OK;
}

const a_qxci_error* last_error(QXCIStreamH handle) {
    return TlsStream::of(handle)->error.get();
}

void destroy(QXCIStreamH handle) {
    if (handle == nullptr) return;
    TlsStream* const stream = TlsStream::of(handle);
    const OwnerMemory& memory = stream->env.memory;
    stream->~TlsStream();
    memory.free(stream);
}

bool is_synchronous(QXCIStreamH) {
    return true;
}

}  // namespace

bool a_credentials::load(const OwnerMemory& memory, const Settings& settings, bool inherited,
                         ErrorRecord& error) {
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

bool TlsStream::init(a_qxci_side side, a_qxci_user_option* options) {
    if (ready() || (side != QXCI_CLIENT && side != QXCI_SERVER)) {
        return error.fail(QxciErrInitError);
    }
    _side = side;
    const bool done = settings.read(options, SCOPE_OBJECT, error) &&
                      _credentials.load(env.memory, settings, true, error) && make_context();
    if (!done) fini();
    return done;
}

bool TlsStream::make_context() {
    _context.reset(SSL_CTX_new(_side == QXCI_CLIENT ? TLS_client_method() : TLS_server_method()));
    if (_context == nullptr || !restrict_protocol(*_context)) {
        return error.fail_openssl(QxciErrInitError);
    }
    SSL_CTX_set_cert_verify_callback(_context.get(), TlsConn::verify_entry, nullptr);
    return true;
}

void TlsStream::fini() {
    _context.reset();
    _credentials = a_credentials();
    settings.clear();
}

const a_qxci_stream_iface stream_iface = {
    .create_func = create_by_name,
    .create_with_id_func = create_with_id,
    .init_func = init,
    .get_algorithm_id_func = algorithm_id,
    .fini_func = fini,
    .get_last_error_func = last_error,
    .destroy_func = destroy,
    .is_synchronous_func = is_synchronous,
};
