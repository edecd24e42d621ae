#ifndef QUOREL_PROVIDERS_STUB_STUBOBJECT_H
#define QUOREL_PROVIDERS_STUB_STUBOBJECT_H

/// The environment, and what the objects of the stub share besides what those of every provider do:
/// a script.

#include "kovcert/qxci/kit/providerkit.h"
#include "providers/stub/stubscript.h"

class StubEnv : public qxci::Environment {
  public:
    using Environment::Environment;
    ~StubEnv() { memory().free(_script); }

    bool init(a_qxci_user_option* options, const char* component, qxci::ErrorRecord& error);

    /// Null: there is none.
    const char* script() const { return _script; }

  private:
    char* _script = nullptr;  // owned
};

/// A class that derives from this begins its init() with prepare().
class StubObject : public qxci::Object {
  public:
    using an_owner = StubEnv;

    explicit StubObject(const StubEnv& env) : StubObject(env, env.script()) {}
    /// `script`: that of what the object belongs to, or null.
    StubObject(const StubEnv& env, const char* script) : Object(env), _env(env), _play(script) {}
    StubObject(const StubObject&) = delete;
    StubObject& operator=(const StubObject&) = delete;
    ~StubObject() { memory().free(_own_script); }

    const StubEnv& env() const { return _env; }
    const char* script() const { return _play.script(); }
    a_stub_step next_step(StubOperation operation) { return _play.next(operation); }

    using Object::fail;
    a_qxci_result fail(const a_stub_step& step);

    /// Plays the next step of an operation which can do nothing but work or fail.
    a_qxci_result play(StubOperation operation);

    /// Takes the options and plays the creation.
    a_qxci_result prepare(StubOperation creation, a_qxci_user_option* options = nullptr,
                          qxci::an_option_list known = nullptr);

    /// Refuses options that are not among `known` and takes "stub_script" from them.
    a_qxci_result take_options(a_qxci_user_option* options, qxci::an_option_list known);

  private:
    const StubEnv& _env;
    StubPlay _play;
    char* _own_script = nullptr;  // owned
};

template <auto Method>
struct a_stub_work;

template <class Object, class... Args, a_qxci_result (Object::*Method)(Args...)>
struct a_stub_work<Method> {
    static a_qxci_result call(typename Object::a_handle handle, Args... args) {
        Object& object = qxci::object_of<Object>(handle);
        object.begin_operation();
        return object.play(StubOperation::work) == QXCI_OK ? (object.*Method)(args...) : QXCI_ERROR;
    }
};

/// The table entry for a method of a hasher, encrypter or signature handler, which the script may
/// have fail.
template <auto Method>
inline constexpr auto stub_work = a_stub_work<Method>::call;

#endif
