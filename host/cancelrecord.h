#ifndef QUOREL_HOST_CANCELRECORD_H
#define QUOREL_HOST_CANCELRECORD_H

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <sched.h>
#include <unistd.h>

#include "host/descendants.h"
#include "host/engine.h"

namespace host {

/// The record that a running call registered, shared between the call's thread and those that
/// cancel. Lock-free, because a signal handler cancels too.
class CancelRecord {
  public:
    explicit CancelRecord(const Engine& engine) : _engine(engine) {}
    CancelRecord(const CancelRecord&) = delete;
    CancelRecord& operator=(const CancelRecord&) = delete;
    ~CancelRecord() { own(nullptr); }

    /// Takes a record (or null) in place of the one held, which is freed once nobody uses it,
    /// unless it is the same one: a canceller raises _users before it looks at the record, so after
    /// the exchange either it sees none or this thread sees that it is busy.
    void own(void* record) {
        void* old = _record.exchange(nullptr);
        while (_users.load() != 0) sched_yield();
        if (old != record) free(old);
        _command = HeldProcess(command_of(record), getpid());
        _record.store(record);
        if (record != nullptr && _cancelled.load()) _cancel(record);
    }

    /// Ends the command and all that it started. From any thread, and from a signal handler, whose
    /// errno it keeps. A record that comes later is cancelled too.
    void cancel() {
        const int saved = errno;
        _cancelled.store(true);
        _users.fetch_add(1);
        if (void* record = _record.load()) _cancel(record);
        _users.fetch_sub(1);
        errno = saved;
    }

    [[nodiscard]] bool cancelled() const { return _cancelled.load(); }

  private:
    static pid_t command_of(const void* record) {
        const auto* info = static_cast<const a_cancel_info*>(record);
        return info != nullptr && info->fn == CANCEL_CMDSHELL ? info->handle.cmd_pid : 0;
    }

    // The library ends the process that it started; what that one has started is ours to find. A
    // command that was waited for in the meantime has left its number to others.
    void _cancel(void* record) {
        end_descendants(_command);
        if (_command.pid() == 0 || _command.send(0)) _engine.cancel(record);
    }

    const Engine& _engine;
    HeldProcess _command;  // changes only while there is no record
    std::atomic<void*> _record{nullptr};
    std::atomic<int> _users{0};
    std::atomic<bool> _cancelled{false};

    static_assert(std::atomic<void*>::is_always_lock_free);
    static_assert(std::atomic<int>::is_always_lock_free);
    static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace host

#endif
