#ifndef QUOREL_HOST_OUTBOX_COUNTERS_H
#define QUOREL_HOST_OUTBOX_COUNTERS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>

namespace host::outbox {

/// What this process has done since it began.
struct Counts {
    /// How an attempt ended, or a delivery without one.
    enum Kind : std::uint8_t {
        Sent,
        Again,
        Split,
        Failed,
        Unknown,  ///< it never came to an end; the delivery is tried again
        Kinds
    };
    /// Upper bounds of the seconds that a message took on the wire; the last bucket has none.
    static constexpr std::array<double, 9> bounds{0.005, 0.02, 0.1, 0.5, 1, 5, 20, 60, 300};

    std::array<std::uint64_t, Kinds> ends{};
    std::array<std::uint64_t, bounds.size() + 1> buckets{};  ///< of the sent ones
    std::uint64_t put_off = 0;                               ///< Again, and not at once
    double seconds = 0;                                      ///< of the sent ones, together
    double waited = 0;  ///< the same from the time on when they were due
};

/// Safe on any thread.
class Counters {
  public:
    void count(Counts::Kind kind);
    void count_put_off();
    /// `took` on the wire, `since_due` in all.
    void count_sent(std::chrono::duration<double> took, std::chrono::duration<double> since_due);
    [[nodiscard]] Counts read() const;

  private:
    mutable std::mutex _mutex;
    Counts _counts;  // guarded by _mutex
};

}  // namespace host::outbox

#endif
