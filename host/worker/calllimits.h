#ifndef QUOREL_HOST_WORKER_CALLLIMITS_H
#define QUOREL_HOST_WORKER_CALLLIMITS_H

#include <atomic>
#include <chrono>
#include <string>

#include "host/engine.h"
#include "host/worker/turn.h"
#include "host/worker/workerprocess.h"

namespace host {

/// The wish that a call end. Made by anyone: a thread, a signal handler.
class CancelWish {
  public:
    void make();
    [[nodiscard]] bool is_made() const { return _made.load(); }
    /// The eventfd that the call waits at, which outlives the wish; below 0: none.
    void wake_at(int wake) { _wake.store(wake); }

  private:
    std::atomic<bool> _made{false};
    std::atomic<int> _wake{-1};
    static_assert(std::atomic<bool>::is_always_lock_free);
    static_assert(std::atomic<int>::is_always_lock_free);
};

/// Decides when a call has to end, and wakes the thread that waits for it. For that thread alone.
class CallLimits {
  public:
    enum class Reason { None, Cancelled, TooLong };

    /// The call's time begins; zero: there is no end of it. The others outlive the call.
    CallLimits(std::chrono::milliseconds allowed, const Engine::Interrupted& interrupted,
               const CancelWish& wish);

    /// Locks `turn`, unless the time is up first.
    bool take_turn(Turn& turn);

    /// From now on the call is number `number` of `worker`, and waits also at `wake`, an eventfd or
    /// none.
    void begin(const WorkerProcess& worker, int number, int wake);

    /// False once the worker's time is up. To be asked often: this is what cancels the call.
    bool go_on();

    /// poll(2) on the worker's socket, with go_on(). False: the time is up.
    bool wait(short events);
    /// The same for a descriptor of the host's, which is given no grace.
    bool wait_for(int descriptor, short events);

    [[nodiscard]] Reason reason() const { return _reason; }
    /// wait_for() was once false.
    [[nodiscard]] bool host_gave_up() const { return _host_gave_up; }
    /// The deadline in words: "0.5 s".
    [[nodiscard]] std::string allowed() const;

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::time_point never = Clock::time_point::max();
    static constexpr Clock::time_point at_once{};

    void _stop(Reason reason, Clock::time_point now);
    [[nodiscard]] bool _poll(int descriptor, short events, Clock::time_point until) const;

    const std::chrono::milliseconds _allowed;
    const Engine::Interrupted& _interrupted;
    const CancelWish& _wish;
    const WorkerProcess* _worker = nullptr;
    int _number = 0;
    int _wake = -1;  // without one, _wish is looked at every so often
    const Clock::time_point _deadline;
    Clock::time_point _next_probe = never;
    Clock::time_point _kill = never;
    Reason _reason = Reason::None;
    bool _host_gave_up = false;
};

}  // namespace host

#endif
