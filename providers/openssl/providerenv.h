#ifndef QUOREL_PROVIDERS_OPENSSL_PROVIDERENV_H
#define QUOREL_PROVIDERS_OPENSSL_PROVIDERENV_H

/// The environment, what a QXCIEnvironmentH points at: the owner's memory and its options. Does not
/// change once it is made, so any number of threads may use it.

#include "providers/openssl/settings.h"

class ProviderEnv {
  public:
    ProviderEnv(const a_qxci_callbacks* callbacks, void* context)
        : memory(callbacks, context), settings(memory, nullptr) {}

    static ProviderEnv* of(QXCIEnvironmentH env) { return reinterpret_cast<ProviderEnv*>(env); }
    QXCIEnvironmentH handle() { return reinterpret_cast<QXCIEnvironmentH>(this); }

    /// Reads the options; false with the reason in `error`.
    bool init(a_qxci_user_option* options, ErrorRecord& error);

    const OwnerMemory memory;
    Settings settings;
};

/// Fills the table of environments.
extern const a_qxci_env_iface env_iface;

#endif
