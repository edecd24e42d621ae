#ifndef QUOREL_KOVCERT_QXCI_QXCICREATE_H
#define QUOREL_KOVCERT_QXCI_QXCICREATE_H

/// How every object of a provider is made, connections included.

#include <new>

#include "kovcert/qxci/dbqxciinterface.h"
#include "kovcert/qxci/qxci.h"
#include "kovcert/qxci/qxcierror.h"

class DBQXCIEnvironment;

/// Where an object comes from.
struct a_qxci_source {
    DBQXCIEnvironment* env;
    DBQXCIInterface* iface;  // null: there is none
    _iface_index index;      // the slot that it is in
};

/// Copies why a creation failed to `err`: QxciErrUnknown for a provider that gives no reason.
inline void qxci_report(const a_qxci_error& error, DBQXCIError* err) {
    err->CloneFrom(&error);
    if (!err->isError()) err->setErrorCode(QxciErrUnknown);
}

/// Calls the provider's function `create` with `args` and an error record, and wraps the handle
/// that comes back. Null with the reason in `err`: the provider's; QxciErrUnknown when it gives
/// none, or there is no function to call.
///
/// The provider's record is never `err`'s own, since its parameters come from the owner's
/// callbacks, and those of `err` from the system's allocator.
template <class Wrapper, class Create, class... Args>
Wrapper* qxci_create(const a_qxci_source& from, Create create, DBQXCIError* err, Args... args) {
    if (create == nullptr) {
        err->Set(QxciErrUnknown);
        return nullptr;
    }
    a_qxci_error error = {};
    const typename Wrapper::a_handle handle = create(args..., &error);
    if (handle == nullptr) {
        qxci_report(error, err);
        const auto destroy = from.iface->_error_iface.destroy_func;
        if (destroy != nullptr) destroy(from.iface->_qxci_env, &error);
        return nullptr;
    }
    auto* const wrapper = new (std::nothrow) Wrapper(handle, from.env, from.iface, from.index);
    if (wrapper == nullptr) {
        from.iface->DestroyHandle(Wrapper::iface, handle);
        err->Set(QxciErrNoMemory);
    }
    return wrapper;
}

#endif
