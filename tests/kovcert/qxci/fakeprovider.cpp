// A provider that says who was asked: every creation fails with the parameters FAKE_NAME, the
// component and the name of the first option. It is compiled once for each library that a test
// loads. The environment variable FAKE_FAULT makes one thing go wrong: it names a getter, a field
// of the version, or what is the matter with environments. An entry point is taken away by defining
// its name as another one.

#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>

#include "kovcert/qxci/qxci.h"

#ifdef FAKE_VERSION
__attribute__((used)) static const char version_record[] =
    "@@==Version==@1@MODULE=fake\0IDENT=" FAKE_VERSION "\0";
#endif

#ifdef FAKE_NEEDS
extern "C" void FAKE_NEEDS();
__attribute__((used)) static void (*const needed)() = FAKE_NEEDS;
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
    void free(void* memory) { callbacks->free_cb(context, memory); }
};

namespace {

bool is_fault(const char* part) {
    const char* const fault = std::getenv("FAKE_FAULT");
    return fault != nullptr && std::strcmp(fault, part) == 0;
}

uint16_t field(const char* name, unsigned right) {
    return static_cast<uint16_t>(is_fault(name) ? right + 1 : right);
}

void refuse(QXCIEnvironmentH env, a_qxci_error* error) {
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

QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* context,
                            a_qxci_user_option* options, const char* component,
                            a_qxci_error* error) {
    a_qxci_env_handle env = {callbacks, context, "", "none"};
    if (component != nullptr) std::strcpy(env.component, component);
    if (options != nullptr) std::strcpy(env.first_option, options->opt_name);
    if (is_fault("environment")) return no<QXCIEnvironmentH>(&env, error);
    if (is_fault("environment without a reason")) return nullptr;
    return new (env.alloc<a_qxci_env_handle>(sizeof env)) a_qxci_env_handle(env);
}

void fill(a_qxci_env_iface& iface) {
    if (!is_fault("create_func")) iface.create_func = create_env;
    iface.destroy_func = [](QXCIEnvironmentH env) { env->free(env); };
    iface.stream_alg_func = [](QXCIEnvironmentH, const char*) { return FAKE_HAS_STREAMS; };
    iface.block_hash_alg_func = [](QXCIEnvironmentH, const char*) { return true; };
    iface.block_hash_alg_id_func = [](QXCIEnvironmentH, a_qxci_byte id) { return id != 99; };
}

void fill(a_qxci_error_iface& iface) {
    iface.destroy_func = [](QXCIEnvironmentH env, a_qxci_error* error) {
        for (char** parm = error->parm_list; *parm != nullptr; ++parm) env->free(*parm);
        env->free(error->parm_list);
    };
}

void fill(a_qxci_conn_iface& iface) {
    iface.destroy_func = [](QXCIStreamConnH) {};
}

void fill(a_qxci_sig_iface& iface) {
    iface.create_func = no;
}

template <class Iface>
void fill(Iface& iface) {
    iface.create_func = no;
    iface.create_with_id_func = no;
}

/// All but the FIPS encrypter by its number.
void fill(a_qxci_enc_iface& iface) {
    fill<a_qxci_enc_iface>(iface);
    iface.create_with_id_func = [](QXCIEnvironmentH env, a_qxci_byte id, const a_qxci_byte*, size_t,
                                   a_qxci_user_option*, a_qxci_error* error) {
        if (id != QXCI_ENC_AES128_FIPS) return no<QXCIBlockEncrypterH>(env, error);
        return reinterpret_cast<QXCIBlockEncrypterH>(env);
    };
    iface.destroy_func = [](QXCIBlockEncrypterH) {};
}

}  // namespace

a_qxci_version QXCIGetVersion() {
    return {field("api_major", QXCI_API_MAJOR), field("api_minor", QXCI_API_MINOR),
            field("impl_id", QXCI_IMPL_ID), field("impl_ver", 9)};
}

#define GETTER(name, a_table)                          \
    a_qxci_result name(a_table* iface) {               \
        fill(*iface);                                  \
        return is_fault(#name) ? QXCI_ERROR : QXCI_OK; \
    }

GETTER(QXCIGetEnvIface, a_qxci_env_iface)
GETTER(QXCIGetErrorIface, a_qxci_error_iface)
GETTER(QXCIGetStreamIface, a_qxci_stream_iface)
GETTER(QXCIGetStreamConnIface, a_qxci_conn_iface)
GETTER(QXCIGetPasswordHasherIface, a_qxci_pw_hash_iface)
GETTER(QXCIGetBlockHasherIface, a_qxci_hash_iface)
GETTER(QXCIGetBlockEncrypterIface, a_qxci_enc_iface)
GETTER(QXCIGetSignatureHandlerIface, a_qxci_sig_iface)
