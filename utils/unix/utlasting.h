#ifndef QUOREL_UTILS_UNIX_UTLASTING_H
#define QUOREL_UTILS_UNIX_UTLASTING_H

/// Static objects with destructors, for code that runs in other people's processes.
///
/// A plain static object is destroyed when its library is unloaded, and just so when the process
/// exits. But at exit other threads go on with what they do, and exit handlers of the host may
/// still call in. A UTLasting<T> is destroyed with the library itself instead:
///
///   - at exit that is after every exit handler, so that those find the library whole;
///   - while a UTLastingUse is alive, on whatever thread, nothing is destroyed: everything stays as
///     it is, for the process ends anyway;
///   - once the objects are destroyed, no use is granted any more.
///
/// Unloading a library while a thread is inside it is an error of its host. So nothing is in use
/// then, and nothing stays behind.

#include <new>
#include <utility>

#include "utils/etc/uttypes.h"

/// Every lasting object: the newest knows the one made before.
class UTLastingObject {
  protected:
    /// `destroy` is called once at most, in the reverse order of making.
    explicit UTLastingObject(void (*destroy)(UTLastingObject* object));

  private:
    friend void ut_end_lasting();

    void (*const _destroy)(UTLastingObject* object);
    UTLastingObject* const _older;
};

/// A T that is made when the library is loaded and lasts as long as said above. Static only.
template <class T>
class UTLasting : public UTLastingObject {
  public:
    template <class... Args>
    explicit UTLasting(Args&&... args) : UTLastingObject(destroy) {
        new (_memory) T(std::forward<Args>(args)...);
    }

    T& operator*() { return *std::launder(reinterpret_cast<T*>(_memory)); }
    T* operator->() { return &**this; }

  private:
    static void destroy(UTLastingObject* object) { (**static_cast<UTLasting*>(object)).~T(); }

    alignas(T) unsigned char _memory[sizeof(T)];
};

/// One use of lasting objects, for the length of a scope. Any thread; uses may nest.
class UTLastingUse {
  public:
    UTLastingUse();
    ~UTLastingUse();
    UTLastingUse(const UTLastingUse&) = delete;
    UTLastingUse& operator=(const UTLastingUse&) = delete;

    /// False when the objects are gone.
    a_bool is_granted() const { return _granted; }

  private:
    const a_bool _granted;
};

/// Destroys them all unless they are in use. Called when the library ends; before that, by tests.
void ut_end_lasting();

#endif
