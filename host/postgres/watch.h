#ifndef QUOREL_HOST_POSTGRES_WATCH_H
#define QUOREL_HOST_POSTGRES_WATCH_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <pthread.h>

#include "host/callframe.h"

namespace host {

/// While it lives, cancels a call that runs in this process when it is to stop or takes too long. A
/// thread of its own asks, since the call's is inside the library. Without a thread nothing is
/// cancelled.
class Watch {
  public:
    /// `deadline` zero: none.
    Watch(CallFrame& frame, bool (*should_stop)(), std::chrono::milliseconds deadline);
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch();

    /// Ends it. True when the call took too long.
    bool end();

  private:
    static void* _run(void* self);
    void _look();

    CallFrame& _frame;
    bool (*const _should_stop)();
    const std::chrono::milliseconds _deadline;
    pthread_t _thread{};
    bool _started = false;
    bool _was_too_long = false;  // the thread's until it is joined
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _over = false;  // guarded by _mutex
};

}  // namespace host

#endif
