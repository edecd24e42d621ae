// A provider that says who was asked: every creation fails with the parameters FAKE_NAME, the
// component and the name of the first option. Compiled once per library that a slot may load.

#include <cstring>
#include <new>
#include <tuple>

#include "kovcert/qxci/qxci.h"

#ifdef FAKE_VERSION
__attribute__((used)) static const char version_record[] =
    "@@==Version==@1@MODULE=fake\0IDENT=" FAKE_VERSION "\0";
#endif

struct a_qxci_env_handle {
    const a_qxci_callbacks* callbacks;
    void* context;
    char component[32];
    char first_option[32];

    template <class T>
    T* alloc(size_t size) {
        return static_cast<T*>(callbacks->alloc_cb(context, size));
    }
};

static void refuse(QXCIEnvironmentH env, a_qxci_error* error) {
    const char* const parms[] = {FAKE_NAME, env->component, env->first_option};
    *error = {QxciErrOptionError, 7, env->alloc<char*>(4 * sizeof(char*))};
    for (int i = 0; i < 3; ++i) {
        error->parm_list[i] = env->alloc<char>(std::strlen(parms[i]) + 1);
        std::strcpy(error->parm_list[i], parms[i]);
    }
    error->parm_list[3] = nullptr;
}

template <class Handle, class... Args>
Handle no(QXCIEnvironmentH env, Args... args) {
    refuse(env, std::get<sizeof...(Args) - 1>(std::tuple(args...)));
    return nullptr;
}

static QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* context,
                                   a_qxci_user_option* options, const char* component,
                                   a_qxci_error* error) {
    a_qxci_env_handle env = {callbacks, context, "", "none"};
    if (component != nullptr) std::strcpy(env.component, component);
    if (options != nullptr) std::strcpy(env.first_option, options->opt_name);
    if (std::strcmp(env.component, "refused") == 0) return no<QXCIEnvironmentH>(&env, error);
    return new (env.alloc<a_qxci_env_handle>(sizeof env)) a_qxci_env_handle(env);
}

a_qxci_version QXCIGetVersion() {
    return {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 9};
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    iface->create_func = create_env;
    iface->destroy_func = [](QXCIEnvironmentH env) { env->callbacks->free_cb(env->context, env); };
    iface->stream_alg_func = [](QXCIEnvironmentH, const char*) { return FAKE_HAS_STREAMS; };
    iface->block_hash_alg_func = [](QXCIEnvironmentH, const char*) { return true; };
    iface->block_hash_alg_id_func = [](QXCIEnvironmentH, a_qxci_byte id) { return id != 99; };
    return QXCI_OK;
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    iface->destroy_func = [](QXCIEnvironmentH env, a_qxci_error* error) {
        for (char** parm = error->parm_list; *parm != nullptr; ++parm) {
            env->callbacks->free_cb(env->context, *parm);
        }
        env->callbacks->free_cb(env->context, error->parm_list);
    };
    return QXCI_OK;
}

template <class Iface>
a_qxci_result offer_nothing(Iface* iface) {
    iface->create_func = no;
    iface->create_with_id_func = no;
    return QXCI_OK;
}

a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface) {
    return offer_nothing(iface);
}
a_qxci_result QXCIGetPasswordHasherIface(a_qxci_pw_hash_iface* iface) {
    return offer_nothing(iface);
}
a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface) {
    return offer_nothing(iface);
}
/// But for the FIPS encrypter by its number.
a_qxci_result QXCIGetBlockEncrypterIface(a_qxci_enc_iface* iface) {
    offer_nothing(iface);
    iface->create_with_id_func = [](QXCIEnvironmentH env, a_qxci_byte id, const a_qxci_byte*,
                                    size_t, a_qxci_user_option*, a_qxci_error* error) {
        if (id != QXCI_ENC_AES128_FIPS) return no<QXCIBlockEncrypterH>(env, error);
        return reinterpret_cast<QXCIBlockEncrypterH>(env);
    };
    iface->destroy_func = [](QXCIBlockEncrypterH) {};
    return QXCI_OK;
}
