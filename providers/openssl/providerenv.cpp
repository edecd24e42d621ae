#include "providers/openssl/providerenv.h"

#include "providers/openssl/algorithm.h"
#include "providers/openssl/openssllibrary.h"

namespace {

/// Sets the library up on the first call. No configuration file is read and no module loaded
/// whatever the environment variables of the process say, and no exit handler is registered. False
/// when the library cannot work. OpenSSL tries each step of its set-up once: one that memory was
/// too short for has failed until the process ends.
bool start_openssl() {
    return OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT |
                                OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                            nullptr) == 1;
}

}  // namespace

bool ProviderEnv::init(a_qxci_user_option* options, const char*, qxci::ErrorRecord& error) {
    if (!start_openssl()) return error.fail(QxciErrInitError);
    if (!_settings.read(options, SCOPE_ENVIRONMENT, error)) return false;

    const a_setting_value type = _settings.get(SETTING_TLS_TYPE);
    if (type.text != nullptr && !qxci::same_name(type.text, provider_algorithm.tls_type)) {
        return error.fail(QxciErrOptionError, type.option);
    }
    const a_setting_value fips = _settings.get(SETTING_FIPS);
    const int wanted = fips.text == nullptr ? 0 : qxci_yes_or_no(fips.text);
    if (wanted < 0) return error.fail(QxciErrOptionError, fips.option);
    return wanted == 0 || error.fail(QxciErrFipsNotSupportedByAlgorithm);
}
