#ifndef QUOREL_PROVIDERS_OPENSSL_PROVIDERENV_H
#define QUOREL_PROVIDERS_OPENSSL_PROVIDERENV_H

#include "kovcert/qxci/kit/providerkit.h"
#include "providers/openssl/settings.h"

/// The environment: the owner's memory and its options. Does not change once it is made, so any
/// number of threads may use it: nothing in this provider needs a mutex.
class ProviderEnv : public qxci::Environment {
  public:
    explicit ProviderEnv(const qxci::Memory& owner)
        : Environment(owner), _settings(memory(), nullptr) {}

    /// Sets OpenSSL up, if no other has, and reads the options; false with the reason in `error`.
    bool init(a_qxci_user_option* options, const char* component, qxci::ErrorRecord& error);

    const Settings& settings() const { return _settings; }

  private:
    Settings _settings;
};

#endif
