#ifndef QUOREL_PROVIDERS_OPENSSL_TLSSTREAM_H
#define QUOREL_PROVIDERS_OPENSSL_TLSSTREAM_H

/// A stream, what a QXCIStreamH points at: the protocol settings, trust and identity that its
/// connections share unless they bring their own.

#include "providers/openssl/identity.h"
#include "providers/openssl/providerenv.h"

/// Trust and identity; each may be missing.
struct a_credentials {
    StorePtr trust;
    Identity identity;

    /// Loads what the settings themselves, or with `inherited` those further out too, name. A
    /// password of their own without such an identity is QxciErrOptionError.
    bool load(const OwnerMemory& memory, const Settings& settings, bool inherited,
              ErrorRecord& error);
};

class TlsStream {
  public:
    explicit TlsStream(ProviderEnv& owner)
        : env(owner), error(owner.memory), settings(owner.memory, &owner.settings) {}

    static TlsStream* of(QXCIStreamH stream) { return reinterpret_cast<TlsStream*>(stream); }
    QXCIStreamH handle() { return reinterpret_cast<QXCIStreamH>(this); }

    /// Entries init_func and fini_func.
    bool init(a_qxci_side side, a_qxci_user_option* options);
    void fini();

    bool ready() const { return _context != nullptr; }
    a_qxci_side side() const { return _side; }
    const a_credentials& credentials() const { return _credentials; }
    /// A session without credentials; null when there is no memory.
    SslPtr make_session() const { return SslPtr(SSL_new(_context.get())); }

    ProviderEnv& env;
    ErrorRecord error;
    Settings settings;

  private:
    bool make_context();

    a_qxci_side _side = QXCI_CLIENT;
    ContextPtr _context;
    a_credentials _credentials;
};

/// Fills the table of streams.
extern const a_qxci_stream_iface stream_iface;

#endif
