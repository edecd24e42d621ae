#ifndef QUOREL_KOVCERT_QXCI_KIT_OBJECT_H
#define QUOREL_KOVCERT_QXCI_KIT_OBJECT_H

#include "kovcert/qxci/kit/environment.h"

namespace qxci {

static_assert(int{QXCI_ERROR} == int{QXCI_IO_ERROR}, "what fail() returns");

/// What the objects of an environment share: its memory, and the error of the last operation.
///
/// An object class derives from this and has
///     using a_handle = ...;       the type of its handles
///     using an_owner = ...;       the class of what it is created in: the environment; for a
///                                 connection, the stream
///     explicit CLASS(an_owner&);
///     a_qxci_result init(...);    which creation calls with what its entry was given besides the
///                                 owner and the error record, and which fails through fail()
class Object {
  public:
    explicit Object(const Environment& env) : _error(env.memory()) {}

    const Memory& memory() const { return _error.memory(); }
    const a_qxci_error* last_error() const { return _error.get(); }

    /// At the start of every operation. A class whose objects may fail for good hides it.
    void begin_operation() { _error.clear(); }

    /// Records the first failure of an operation; QXCI_ERROR, which is also QXCI_IO_ERROR.
    a_qxci_result fail(a_dbqxci_error code, const char* parm = nullptr, uint32_t system_code = 0) {
        _error.fail(code, parm, system_code);
        return QXCI_ERROR;
    }

    /// Checks the room for a result of `needed` bytes and stores that number in *out_len.
    a_qxci_result check_room(const void* out, size_t* out_len, size_t needed) {
        if (out_len == nullptr) return fail(QxciErrOptionError, "out_len");
        const bool fits = out != nullptr && *out_len >= needed;
        *out_len = needed;
        return fits ? QXCI_OK : fail(QxciErrOptionError, "out_len");
    }

    /// For what fails on the object's behalf.
    ErrorRecord& error() { return _error; }

  private:
    ErrorRecord _error;
};

/// Whether a connection can send and receive through what it was given.
inline bool are_usable(const a_qxci_conn_callbacks* callbacks) {
    return callbacks != nullptr && callbacks->read_cb != nullptr && callbacks->write_cb != nullptr;
}

/// An entry that creates: create_func or create_with_id_func, whose arguments between the owner's
/// handle and the error record are of the types Args.
template <class Made, class... Args>
typename Made::a_handle create(typename Made::an_owner::a_handle owner_handle, Args... args,
                               a_qxci_error* error) {
    typename Made::an_owner& owner = object_of<typename Made::an_owner>(owner_handle);
    const Memory& memory = owner.memory();
    Made* const made = memory.template make<Made>(owner);
    if (made == nullptr) {
        if (error != nullptr) *error = {QxciErrNoMemory, 0, nullptr};
        return nullptr;
    }
    if (made->init(args...) == QXCI_OK) return handle_of(*made);
    made->error().give_to(error);
    memory.destroy(made);
    return nullptr;
}

/// Entry destroy_func.
template <class Made>
void destroy(typename Made::a_handle handle) {
    if (handle == nullptr) return;
    Made& made = object_of<Made>(handle);
    const Memory& memory = made.memory();
    memory.destroy(&made);
}

}  // namespace qxci

#endif
