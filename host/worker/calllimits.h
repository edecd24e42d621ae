#ifndef QUOREL_HOST_WORKER_CALLLIMITS_H
#define QUOREL_HOST_WORKER_CALLLIMITS_H

#include <atomic>
#include <chrono>
#include <string>

#include "host/descriptor.h"
#include "host/engine.h"
#include "host/worker/workerprocess.h"

namespace host {

/// Decides when the call that a worker makes has to end, and wakes the thread that waits for it.
class CallLimits {
  public:
    enum class Reason { None, Cancelled, TooLong };

    explicit CallLimits(const WorkerProcess& worker);

    /// The call of this number begins. `interrupted` outlives it.
    void begin(int number, const Engine::Interrupted& interrupted);

    /// False once the worker's time is up. To be asked often: this is what cancels the call.
    bool go_on();

    /// poll(2) on the worker's socket, with go_on(). False: the time is up.
    bool wait(short events);

    /// Asks that the call of this number end. Async-signal-safe, from any thread.
    void cancel(int number);

    /// For the calls that begin from now on; zero: none. From any thread.
    void set_deadline(std::chrono::milliseconds deadline) { _allowed.store(deadline.count()); }

    [[nodiscard]] Reason reason() const { return _reason; }
    /// The running call's deadline in words: "0.5 s".
    [[nodiscard]] std::string allowed() const;

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds grace{250};
    static constexpr Clock::time_point never = Clock::time_point::max();

    void _stop(Reason reason, Clock::time_point now);
    [[nodiscard]] int _milliseconds_left(Clock::time_point now) const;

    const WorkerProcess& _worker;
    Descriptor _wake;    // an eventfd; without one, _cancelled is looked at every so often
    pid_t _process = 0;  // whose _wake it is: a forked copy of it would take the wake-up away
    std::atomic<int> _cancelled{0};
    std::atomic<std::chrono::milliseconds::rep> _allowed{0};
    static_assert(std::atomic<int>::is_always_lock_free);

    // Of the running call.
    int _number = 0;
    const Engine::Interrupted* _interrupted = nullptr;
    std::chrono::milliseconds _given{0};
    Clock::time_point _deadline = never;
    Clock::time_point _next_probe = never;
    Clock::time_point _kill = never;
    Reason _reason = Reason::None;
};

}  // namespace host

#endif
