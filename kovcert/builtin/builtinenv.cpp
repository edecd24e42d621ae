#include "kovcert/builtin/builtinenv.h"

#include <cstring>
#include <new>

#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/builtin/builtinobject.h"

char* BuiltinEnv::strdup(const char* text) const {
    const size_t size = std::strlen(text) + 1;
    void* const copy = alloc(size);
    if (copy != nullptr) std::memcpy(copy, text, size);
    return static_cast<char*>(copy);
}

namespace {

QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* global_context,
                            a_qxci_user_option*, const char*, a_qxci_error* error) {
    if (callbacks == nullptr || callbacks->alloc_cb == nullptr || callbacks->free_cb == nullptr) {
        _QXCIError_SetError(error, nullptr, QxciErrInitError, nullptr);
        return nullptr;
    }
    void* const place = callbacks->alloc_cb(global_context, sizeof(BuiltinEnv));
    if (place == nullptr) {
        _QXCIError_SetError(error, nullptr, QxciErrNoMemory, nullptr);
        return nullptr;
    }
    return (new (place) BuiltinEnv(callbacks, global_context))->handle();
}

void destroy_env(QXCIEnvironmentH env) {
    if (env == nullptr) return;
    const BuiltinEnv copy = *BuiltinEnv::of(env);
    copy.free(env);
}

template <const auto& Algorithms>
bool has_name(QXCIEnvironmentH, const char* name) {
    return find_algorithm(Algorithms, name) != nullptr;
}

template <const auto& Algorithms>
bool has_id(QXCIEnvironmentH, a_qxci_byte id) {
    return find_algorithm(Algorithms, id) != nullptr;
}

bool has_no_name(QXCIEnvironmentH, const char*) {
    return false;
}
bool has_no_id(QXCIEnvironmentH, a_qxci_byte) {
    return false;
}

constexpr a_qxci_env_iface env_iface = {
    .create_func = create_env,
    .destroy_func = destroy_env,
    .stream_alg_func = has_no_name,
    .stream_alg_id_func = has_no_id,
    .block_enc_alg_func = has_name<builtin_enc_algorithms>,
    .block_enc_alg_id_func = has_id<builtin_enc_algorithms>,
    .block_hash_alg_func = has_name<builtin_hash_algorithms>,
    .block_hash_alg_id_func = has_id<builtin_hash_algorithms>,
    .pw_hash_alg_func = has_name<builtin_pw_hash_algorithms>,
    .pw_hash_alg_id_func = has_id<builtin_pw_hash_algorithms>,
};

constexpr a_qxci_error_iface error_iface = {.destroy_func = QXCIError_Destroy};

}  // namespace

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    return fill_iface(iface, env_iface);
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    return fill_iface(iface, error_iface);
}
