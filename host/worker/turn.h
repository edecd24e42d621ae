#ifndef QUOREL_HOST_WORKER_TURN_H
#define QUOREL_HOST_WORKER_TURN_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace host {

/// What one thread has at a time. A std::timed_mutex would be the same, but GCC's ThreadSanitizer
/// does not know its functions.
class Turn {
  public:
    bool try_lock_for(std::chrono::milliseconds patience) {
        std::unique_lock lock(_mutex);
        return _free.wait_for(lock, patience, [this] { return !_taken; }) && (_taken = true);
    }
    bool try_lock() { return try_lock_for(std::chrono::milliseconds(0)); }
    void unlock() {
        const std::lock_guard lock(_mutex);
        _taken = false;
        _free.notify_one();
    }

  private:
    std::mutex _mutex;
    std::condition_variable _free;
    bool _taken = false;
};

}  // namespace host

#endif
