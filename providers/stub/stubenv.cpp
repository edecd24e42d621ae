#include <cstring>
#include <new>

#include "providers/stub/qxcistub.h"
#include "providers/stub/stubobject.h"
#include "providers/stub/stubtext.h"

namespace {

/// The environment's script for `script`, the option, which may be null; false with the reason.
bool copy_script(const StubMemory& memory, const char* script, char*& copy, a_qxci_error* error) {
    if (script == nullptr) return true;
    if (!stub_script_is_good(script)) {
        stub_set_error(memory, error, QxciErrOptionError, 0, "stub_script");
        return false;
    }
    copy = memory.copy_text(script, std::strlen(script));
    if (copy == nullptr) stub_set_error(memory, error, QxciErrNoMemory, 0, nullptr);
    return copy != nullptr;
}

QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* global_context,
                            a_qxci_user_option* options, const char*, a_qxci_error* error) {
    const StubMemory memory(callbacks, global_context);
    if (callbacks == nullptr || callbacks->alloc_cb == nullptr || callbacks->free_cb == nullptr) {
        stub_set_error(memory, error, QxciErrInitError, 0, nullptr);
        return nullptr;
    }
    char* script = nullptr;
    if (!copy_script(memory, stub_find_option(options, "stub_script"), script, error)) {
        return nullptr;
    }
    const a_stub_step step = StubPlay(script).next(StubOperation::env);
    void* const place = step.outcome == StubOutcome::fail ? nullptr : memory.alloc(sizeof(StubEnv));
    if (place != nullptr) {
        memory.log("QXCI-STUB: nothing that goes through this provider is protected");
        return (new (place) StubEnv(memory, script))->handle();
    }
    memory.free(script);
    if (step.outcome == StubOutcome::fail) {
        stub_set_error(memory, error, step);
    } else {
        stub_set_error(memory, error, QxciErrNoMemory, 0, nullptr);
    }
    return nullptr;
}

void destroy_env(QXCIEnvironmentH env) {
    if (env == nullptr) return;
    const StubEnv copy = *StubEnv::of(env);
    copy.free(copy.script());
    copy.free(env);
}

template <const auto& Algorithms, class Key>
bool has(QXCIEnvironmentH, Key key) {
    return stub_find_algorithm(Algorithms, key) != nullptr;
}

constexpr a_qxci_env_iface env_iface = {
    .create_func = create_env,
    .destroy_func = destroy_env,
    .stream_alg_func = has<stub_streams, const char*>,
    .stream_alg_id_func = has<stub_streams, a_qxci_byte>,
    .block_enc_alg_func = has<stub_encrypters, const char*>,
    .block_enc_alg_id_func = has<stub_encrypters, a_qxci_byte>,
    .block_hash_alg_func = has<stub_hashers, const char*>,
    .block_hash_alg_id_func = has<stub_hashers, a_qxci_byte>,
    .pw_hash_alg_func = has<stub_pw_hashers, const char*>,
    .pw_hash_alg_id_func = has<stub_pw_hashers, a_qxci_byte>,
};

constexpr a_qxci_error_iface error_iface = {
    .destroy_func = [](QXCIEnvironmentH env,
                       a_qxci_error* error) { stub_free_parms(*StubEnv::of(env), error); },
};

}  // namespace

a_qxci_version QXCIGetVersion() {
    return {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    return stub_fill(iface, env_iface);
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    return stub_fill(iface, error_iface);
}
