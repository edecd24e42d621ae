#ifndef QUOREL_PROVIDERS_OPENSSL_TLSSTREAM_H
#define QUOREL_PROVIDERS_OPENSSL_TLSSTREAM_H

/// A stream: the protocol settings, trust and identity that its connections share unless they bring
/// their own.

#include "providers/openssl/algorithm.h"
#include "providers/openssl/identity.h"
#include "providers/openssl/providerenv.h"

/// Trust and identity; each may be missing.
struct a_credentials {
    StorePtr trust;
    Identity identity;

    /// Loads what the settings themselves, or with `inherited` those further out too, name. A
    /// password of their own without such an identity is QxciErrOptionError.
    bool load(const qxci::Memory& memory, const Settings& settings, bool inherited,
              qxci::ErrorRecord& error);
};

class TlsStream : public qxci::Object {
  public:
    using a_handle = QXCIStreamH;
    using an_owner = ProviderEnv;

    explicit TlsStream(const ProviderEnv& env)
        : Object(env), _env(env), _settings(memory(), &env.settings()) {}

    /// The stream has nothing to log that its connections do not. `algorithm` is a name or a
    /// number.
    template <class Key>
    a_qxci_result init(const a_qxci_stream_callbacks*, void*, Key algorithm) {
        const bool known = qxci::is_algorithm(provider_algorithm, algorithm);
        return known ? QXCI_OK : fail(QxciErrBadEncryptionAlgorithm);
    }
    a_qxci_byte algorithm_id() const { return provider_algorithm.id; }

    /// Entries init_func and fini_func.
    a_qxci_result start(a_qxci_side side, a_qxci_user_option* options);
    a_qxci_result finish();

    bool ready() const { return _context != nullptr; }
    const ProviderEnv& env() const { return _env; }
    const Settings& settings() const { return _settings; }
    a_qxci_side side() const { return _side; }
    const a_credentials& credentials() const { return _credentials; }
    /// A session without credentials; null when there is no memory.
    SslPtr make_session() const { return SslPtr(SSL_new(_context.get())); }

  private:
    bool make_context();

    const ProviderEnv& _env;
    Settings _settings;
    a_qxci_side _side = QXCI_CLIENT;
    ContextPtr _context;
    a_credentials _credentials;
};

#endif
