#ifndef QUOREL_PROVIDERS_STUB_STUBOBJECT_H
#define QUOREL_PROVIDERS_STUB_STUBOBJECT_H

/// What the objects of the stub share: memory from the owner, the last error, the script, and the
/// table entries that are the same for all.
///
/// An object class derives from StubObject, names its handle type as `a_handle` and the script
/// operation of its creation as `creation`, and has
///     a_qxci_result init(...);
/// which creation calls with its arguments on the new object and which fails through fail().

#include <new>

#include <string.h>

#include "kovcert/qxci/qxci.h"
#include "providers/stub/stubscript.h"

/// The owner's memory. Does not change, so any number of threads may use it.
class StubMemory {
  public:
    StubMemory(const a_qxci_callbacks* callbacks, void* context)
        : _callbacks(callbacks), _context(context) {}

    /// Null when the owner has no memory to give.
    void* alloc(size_t size) const { return _callbacks->alloc_cb(_context, size); }
    /// Ignores null.
    void free(void* memory) const { _callbacks->free_cb(_context, memory); }
    /// A copy of `len` bytes with a zero byte behind them; null when there is no memory.
    char* copy_text(const char* text, size_t len) const;
    /// A line for the owner's log, if it has one.
    void log(const char* text) const;

  private:
    const a_qxci_callbacks* const _callbacks;  // the owner's
    void* const _context;
};

/// Fills a record that is all zero. Without memory for a parameter there is none: the code always
/// gets through. A null record is ignored.
void stub_set_error(const StubMemory& memory, a_qxci_error* error, a_dbqxci_error code,
                    uint32_t system_code, const char* parm);
/// The same from the text of a step that fails.
void stub_set_error(const StubMemory& memory, a_qxci_error* error, const a_stub_step& step);
/// Frees the parameters and leaves the fields as they are.
void stub_free_parms(const StubMemory& memory, const a_qxci_error* error);

/// What a QXCIEnvironmentH of the stub points at.
class StubEnv : public StubMemory {
  public:
    /// `script` is memory of the owner, which it gives back; null: there is none.
    StubEnv(const StubMemory& memory, char* script) : StubMemory(memory), _script(script) {}

    static StubEnv* of(QXCIEnvironmentH env) { return reinterpret_cast<StubEnv*>(env); }
    QXCIEnvironmentH handle() { return reinterpret_cast<QXCIEnvironmentH>(this); }
    char* script() const { return _script; }

  private:
    char* const _script;
};

class StubObject {
  public:
    /// `script`: that of what the object belongs to, or null.
    StubObject(StubEnv& env, const char* script) : _env(env), _play(script) {}
    StubObject(const StubObject&) = delete;
    StubObject& operator=(const StubObject&) = delete;
    ~StubObject();

    StubEnv& env() { return _env; }
    const char* script() const { return _play.script(); }
    a_stub_step next_step(StubOperation operation) { return _play.next(operation); }
    const a_qxci_error* last_error() const { return &_error; }

    /// At the start of every operation: forgets the error of the one before.
    void begin_operation();

    /// Records the failure of an operation; QXCI_ERROR, which is also QXCI_IO_ERROR.
    a_qxci_result fail(a_dbqxci_error code, const char* parm = nullptr, uint32_t system_code = 0);
    a_qxci_result fail(const a_stub_step& step);

    /// Plays the next step of an operation which can do nothing but work or fail.
    a_qxci_result play(StubOperation operation);

    /// Refuses options that are not among `known` and takes "stub_script" from them.
    a_qxci_result take_options(a_qxci_user_option* options, const char* const* known);

    /// Checks the room for a result of `needed` bytes and stores that number in *out_len.
    a_qxci_result check_room(const void* out, size_t* out_len, size_t needed);

    /// Hands the error, with its parameters, over to a record of the owner, which may be null.
    void give_error(a_qxci_error* to);

  private:
    StubEnv& _env;
    StubPlay _play;
    char* _own_script = nullptr;  // owned
    a_qxci_error _error = {};
};

static_assert(int{QXCI_ERROR} == int{QXCI_IO_ERROR}, "what fail() returns");

/// The object behind a handle.
template <class Object>
Object& stub_object(typename Object::a_handle handle) {
    return *reinterpret_cast<Object*>(handle);
}

/// The same at the start of an operation.
template <class Object>
Object& stub_operate(typename Object::a_handle handle) {
    Object& object = stub_object<Object>(handle);
    object.begin_operation();
    return object;
}

/// The table entry for a method of a hasher, encrypter or signature handler, which the script may
/// have fail.
template <auto Method>
struct StubWork;

template <class Object, class... Args, a_qxci_result (Object::*Method)(Args...)>
struct StubWork<Method> {
    static a_qxci_result call(typename Object::a_handle handle, Args... args) {
        Object& object = stub_operate<Object>(handle);
        return object.play(StubOperation::work) == QXCI_OK ? (object.*Method)(args...) : QXCI_ERROR;
    }
};

template <auto Method>
constexpr auto stub_work = StubWork<Method>::call;

/// Entry destroy_func. Any object may hold a key, so all of its memory is wiped.
template <class Object>
void stub_destroy(typename Object::a_handle handle) {
    if (handle == nullptr) return;
    Object* const object = &stub_object<Object>(handle);
    StubEnv& env = object->env();
    object->~Object();
    explicit_bzero(object, sizeof(Object));
    env.free(object);
}

/// Creates an object, which plays `script` if it has none of its own among the options; null with
/// the reason in `error`.
template <class Object, class... Args>
typename Object::a_handle stub_create(StubEnv& env, const char* script, a_qxci_error* error,
                                      a_qxci_user_option* options, const char* const* known,
                                      Args... args) {
    void* const place = env.alloc(sizeof(Object));
    if (place == nullptr) {
        stub_set_error(env, error, QxciErrNoMemory, 0, nullptr);
        return nullptr;
    }
    Object* const object = new (place) Object(env, script);
    const auto handle = reinterpret_cast<typename Object::a_handle>(object);
    if (object->take_options(options, known) == QXCI_OK &&
        object->play(Object::creation) == QXCI_OK && object->init(args...) == QXCI_OK) {
        return handle;
    }
    object->give_error(error);
    stub_destroy<Object>(handle);
    return nullptr;
}

/// The same for an object of an environment that has no options.
template <class Object, class... Args>
typename Object::a_handle stub_create(QXCIEnvironmentH env, a_qxci_error* error, Args... args) {
    StubEnv& owner = *StubEnv::of(env);
    return stub_create<Object>(owner, owner.script(), error, nullptr, nullptr, args...);
}

/// Entry get_last_error_func.
template <class Object>
const a_qxci_error* stub_last_error(typename Object::a_handle handle) {
    return stub_object<Object>(handle).last_error();
}

/// Entry get_algorithm_id_func.
template <class Object>
a_qxci_byte stub_algorithm_id(typename Object::a_handle handle) {
    return stub_object<Object>(handle).algorithm_id();
}

/// A getter: fills the owner's table.
template <class Iface>
a_qxci_result stub_fill(Iface* iface, const Iface& entries) {
    if (iface == nullptr) return QXCI_ERROR;
    *iface = entries;
    return QXCI_OK;
}

#endif
