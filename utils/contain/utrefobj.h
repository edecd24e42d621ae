#ifndef QUOREL_UTILS_CONTAIN_UTREFOBJ_H
#define QUOREL_UTILS_CONTAIN_UTREFOBJ_H

/// Counted references: an object lives until the last of its owners has let go of it.

#include <atomic>
#include <memory>

#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"

/// The base of objects with several owners. Whoever makes one with new holds the first reference.
///
/// Threads: references may be added and released on any thread; the thread that releases the last
/// one sees everything that the others did before they released theirs.
class c_utils_refobj : public c_utils_base {
  public:
    c_utils_refobj(const c_utils_refobj&) = delete;
    c_utils_refobj& operator=(const c_utils_refobj&) = delete;

    /// Adds a reference. The caller holds one, or knows somebody who does.
    void AddRef() { _refcount.fetch_add(1, std::memory_order_relaxed); }

    /// Gives a reference back; the last one deletes the object.
    void Release() {
        if (_refcount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    /// The references at this moment; only a thread that knows all owners can rely on it.
    uint32 RefCount() const { return _refcount.load(std::memory_order_acquire); }

  protected:
    c_utils_refobj() = default;
    virtual ~c_utils_refobj() = default;

  private:
    std::atomic<uint32> _refcount{1};
};

/// Holds one reference for the length of a scope.
struct c_utils_releaser {
    void operator()(c_utils_refobj* object) const { object->Release(); }
};
template <class T>
using c_utils_ref = std::unique_ptr<T, c_utils_releaser>;

#endif
