#ifndef QUOREL_HOST_CANCELRECORD_H
#define QUOREL_HOST_CANCELRECORD_H

#include <sched.h>

#include <atomic>
#include <cstdlib>

#include "host/library.h"

namespace host {

/// The record that a running call registered, shared between the call's thread and those that
/// cancel. Lock-free, because a signal handler cancels too.
class CancelRecord {
  public:
    explicit CancelRecord(const Library& library) : _library(library) {}
    CancelRecord(const CancelRecord&) = delete;
    CancelRecord& operator=(const CancelRecord&) = delete;
    ~CancelRecord() { own(nullptr); }

    /// Takes a record (or null) in place of the one held, which is freed once nobody uses it,
    /// unless it is the same one: a canceller raises _users before it looks at the record, so after
    /// the exchange either it sees the new record or this thread sees that it is busy.
    void own(void* record) {
        void* old = _record.exchange(record);
        while (_users.load() != 0) sched_yield();
        if (old != record) free(old);
        if (record != nullptr && _cancelled.load()) _library.cancel(record);
    }

    /// From any thread, and from a signal handler. A record that comes later is cancelled too.
    void cancel() {
        _cancelled.store(true);
        _users.fetch_add(1);
        if (void* record = _record.load()) _library.cancel(record);
        _users.fetch_sub(1);
    }

    [[nodiscard]] bool cancelled() const { return _cancelled.load(); }

  private:
    const Library& _library;
    std::atomic<void*> _record{nullptr};
    std::atomic<int> _users{0};
    std::atomic<bool> _cancelled{false};

    static_assert(std::atomic<void*>::is_always_lock_free);
    static_assert(std::atomic<int>::is_always_lock_free);
    static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace host

#endif
