#include "providers/openssl/providerenv.h"

#include <new>

#include "providers/openssl/algorithm.h"
#include "providers/openssl/openssllibrary.h"

namespace {

QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* global_context,
                            a_qxci_user_option* options, const char*, a_qxci_error* error) {
    if (callbacks == nullptr || callbacks->alloc_cb == nullptr || callbacks->free_cb == nullptr ||
        !start_openssl()) {
        if (error != nullptr) *error = {QxciErrInitError, 0, nullptr};
        return nullptr;
    }
    const OwnerMemory memory(callbacks, global_context);
    ErrorRecord reason(memory);
    void* const place = memory.alloc(sizeof(ProviderEnv));
    if (place == nullptr) {
        reason.fail(QxciErrNoMemory);
        reason.give_to(error);
        return nullptr;
    }
    ProviderEnv* const env = new (place) ProviderEnv(callbacks, global_context);
    if (env->init(options, reason)) return env->handle();
    reason.give_to(error);
    env->~ProviderEnv();
    memory.free(env);
    return nullptr;
}

void destroy_env(QXCIEnvironmentH handle) {
    if (handle == nullptr) return;
    ProviderEnv* const env = ProviderEnv::of(handle);
    const OwnerMemory memory = env->memory;
    env->~ProviderEnv();
    memory.free(env);
}

bool has_stream_name(QXCIEnvironmentH, const char* name) {
    if (name == nullptr) return false;
    for (const char* known : provider_algorithm.names) {
        if (same_name(known, name)) return true;
    }
    return false;
}

bool has_stream_id(QXCIEnvironmentH, a_qxci_byte id) {
    return id == provider_algorithm.id;
}

bool has_no_name(QXCIEnvironmentH, const char*) {
    return false;
}
bool has_no_id(QXCIEnvironmentH, a_qxci_byte) {
    return false;
}

}  // namespace

bool ProviderEnv::init(a_qxci_user_option* options, ErrorRecord& error) {
    if (!settings.read(options, SCOPE_ENVIRONMENT, error)) return false;

    const a_setting_value type = settings.get(SETTING_TLS_TYPE);
    if (type.text != nullptr && !same_name(type.text, provider_algorithm.tls_type)) {
        return error.fail(QxciErrOptionError, type.option);
    }
    const a_setting_value fips = settings.get(SETTING_FIPS);
    const int wanted = fips.text == nullptr ? 0 : qxci_yes_or_no(fips.text);
    if (wanted < 0) return error.fail(QxciErrOptionError, fips.option);
    return wanted == 0 || error.fail(QxciErrFipsNotSupportedByAlgorithm);
}

const a_qxci_env_iface env_iface = {
    .create_func = create_env,
    .destroy_func = destroy_env,
    .stream_alg_func = has_stream_name,
    .stream_alg_id_func = has_stream_id,
    .block_enc_alg_func = has_no_name,
    .block_enc_alg_id_func = has_no_id,
    .block_hash_alg_func = has_no_name,
    .block_hash_alg_id_func = has_no_id,
    .pw_hash_alg_func = has_no_name,
    .pw_hash_alg_id_func = has_no_id,
};
