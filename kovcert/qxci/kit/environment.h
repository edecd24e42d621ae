#ifndef QUOREL_KOVCERT_QXCI_KIT_ENVIRONMENT_H
#define QUOREL_KOVCERT_QXCI_KIT_ENVIRONMENT_H

#include "kovcert/qxci/kit/errorrecord.h"
#include "kovcert/qxci/kit/tables.h"

namespace qxci {

/// What a QXCIEnvironmentH points at. A provider whose environments hold no more than this may use
/// it as it is; one that wants more derives from it and hides init().
class Environment {
  public:
    using a_handle = QXCIEnvironmentH;

    explicit Environment(const Memory& memory) : _memory(memory) {}
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    const Memory& memory() const { return _memory; }

    /// Takes what create_func was given; false with the reason in `error`.
    bool init(a_qxci_user_option*, const char*, ErrorRecord&) { return true; }

  private:
    const Memory _memory;
};

/// Entry destroy_func.
template <class Env>
void destroy_environment(QXCIEnvironmentH handle) {
    if (handle == nullptr) return;
    Env& env = object_of<Env>(handle);
    const Memory memory = env.memory();  // outlives the one that is inside
    memory.destroy(&env);
}

/// Entry create_func. Callbacks without memory are QxciErrInitError.
template <class Env>
QXCIEnvironmentH create_environment(const a_qxci_callbacks* callbacks, void* global_context,
                                    a_qxci_user_option* options, const char* component,
                                    a_qxci_error* error) {
    if (callbacks == nullptr || callbacks->alloc_cb == nullptr || callbacks->free_cb == nullptr) {
        if (error != nullptr) *error = {QxciErrInitError, 0, nullptr};
        return nullptr;
    }
    const Memory memory(callbacks, global_context);
    ErrorRecord reason(memory);
    Env* const env = memory.make<Env>(memory);
    if (env == nullptr) {
        reason.fail(QxciErrNoMemory);
    } else if (env->init(options, component, reason)) {
        return handle_of(*env);
    }
    memory.destroy(env);
    reason.give_to(error);
    return nullptr;
}

/// Entry destroy_func of a_qxci_error_iface.
template <class Env>
void destroy_error(QXCIEnvironmentH env, a_qxci_error* error) {
    free_error(object_of<Env>(env).memory(), error);
}

}  // namespace qxci

#endif
