#ifndef QUOREL_HOST_WORKER_SPIN_H
#define QUOREL_HOST_WORKER_SPIN_H

#include <algorithm>
#include <chrono>
#include <climits>

#include <unistd.h>

namespace host {

/// The beginning of a wait, spent awake. To wake a processor that rests takes tens of microseconds,
/// more than a short call; but where processors are busy, who waits awake holds up what it waits
/// for. So it is done as long as it succeeds, and else tried ever more rarely.
class Spin {
  public:
    /// Asks `ready` for some microseconds, if that is promising: true as soon as it is.
    template <class Ready>
    bool until(const Ready& ready) {
        using Clock = std::chrono::steady_clock;
        if (_pause > 0) {
            --_pause;
            return false;
        }
        const Clock::time_point end = Clock::now() + longest;
        do {
            if (ready()) {
                _next_pause = 1;
                return true;
            }
        } while (Clock::now() < end);
        _pause = _next_pause;
        _next_pause = std::min(2 * _next_pause, longest_pause);
        return false;
    }

  private:
    static constexpr std::chrono::microseconds longest{50};
    static constexpr unsigned longest_pause = 128;  // waits

    // With a single processor there is nobody to do what is waited for.
    unsigned _pause = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 0 : UINT_MAX;
    unsigned _next_pause = 1;
};

}  // namespace host

#endif
