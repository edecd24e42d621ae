#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINOBJECT_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINOBJECT_H

/// What the objects of the built-in provider share: memory from the owner, the last error, and the
/// table entries that are the same for all.
///
/// An object class derives from BuiltinObject, names its handle type as `a_handle`, and has
///     a_qxci_result init(...);
/// which creation calls with its arguments on the new object and which fails through fail().

#include <new>

#include "kovcert/builtin/builtinenv.h"
#include "kovcert/builtin/builtinerror.h"
#include "utils/utmem/utwipe.h"

class BuiltinObject {
  public:
    explicit BuiltinObject(BuiltinEnv& env) : _env(env) {}
    BuiltinObject(const BuiltinObject&) = delete;
    BuiltinObject& operator=(const BuiltinObject&) = delete;
    ~BuiltinObject() { QXCIError_Destroy(_env.handle(), &_error); }

    BuiltinEnv& env() { return _env; }
    const a_qxci_error* last_error() const { return &_error; }

    /// At the start of every operation: forgets the error of the one before.
    void begin_operation() {
        QXCIError_Destroy(_env.handle(), &_error);
        _QXCIError_Clear(&_error);
    }

    /// Records the first failure of an operation; QXCI_ERROR.
    a_qxci_result fail(a_dbqxci_error code, const char* parm = nullptr, uint32_t system_code = 0) {
        _QXCIError_SetErrorIfOK(&_error, _env.handle(), code, system_code, parm);
        return QXCI_ERROR;
    }

    /// Checks the room for a result of `needed` bytes and stores that number in *out_len.
    a_qxci_result check_room(const void* out, size_t* out_len, size_t needed) {
        if (out_len == nullptr) return fail(QxciErrOptionError, "out_len");
        const bool fits = out != nullptr && *out_len >= needed;
        *out_len = needed;
        return fits ? QXCI_OK : fail(QxciErrOptionError, "out_len");
    }

    /// Hands the error, with its parameters, over to a record of the owner, which may be null.
    void give_error(a_qxci_error* to) {
        if (to == nullptr) return;
        *to = _error;
        _QXCIError_Clear(&_error);
    }

  private:
    BuiltinEnv& _env;
    a_qxci_error _error = {};
};

/// The object behind a handle.
template <class Object>
Object& object_of(typename Object::a_handle handle) {
    return *reinterpret_cast<Object*>(handle);
}

/// The same at the start of an operation.
template <class Object>
Object& operate_on(typename Object::a_handle handle) {
    Object& object = object_of<Object>(handle);
    object.begin_operation();
    return object;
}

/// Entry destroy_func. Every object may hold secrets, so all of its memory is wiped.
template <class Object>
void destroy_object(typename Object::a_handle handle) {
    if (handle == nullptr) return;
    Object* const object = &object_of<Object>(handle);
    BuiltinEnv& env = object->env();
    object->~Object();
    ut_wipe(object, sizeof(Object));
    env.free(object);
}

/// Creates an object; null with the reason in `error`.
template <class Object, class... Args>
typename Object::a_handle create_object(QXCIEnvironmentH env, a_qxci_error* error, Args... args) {
    BuiltinEnv& memory = *BuiltinEnv::of(env);
    void* const place = memory.alloc(sizeof(Object));
    if (place == nullptr) {
        _QXCIError_SetError(error, env, QxciErrNoMemory, nullptr);
        return nullptr;
    }
    Object* const object = new (place) Object(memory);
    const auto handle = reinterpret_cast<typename Object::a_handle>(object);
    if (object->init(args...) == QXCI_OK) return handle;
    object->give_error(error);
    destroy_object<Object>(handle);
    return nullptr;
}

/// Entry get_last_error_func.
template <class Object>
const a_qxci_error* object_last_error(typename Object::a_handle handle) {
    return object_of<Object>(handle).last_error();
}

/// Entry get_algorithm_id_func.
template <class Object>
a_qxci_byte object_algorithm_id(typename Object::a_handle handle) {
    return object_of<Object>(handle).algorithm_id();
}

/// A getter: fills the owner's table.
template <class Iface>
a_qxci_result fill_iface(Iface* iface, const Iface& entries) {
    if (iface == nullptr) return QXCI_ERROR;
    *iface = entries;
    return QXCI_OK;
}

#endif
