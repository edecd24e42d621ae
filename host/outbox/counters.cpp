#include "host/outbox/counters.h"

#include <algorithm>

namespace host::outbox {

void Counters::count(Counts::Kind kind) {
    const std::lock_guard lock(_mutex);
    ++_counts.ends.at(kind);
}

void Counters::count_put_off() {
    const std::lock_guard lock(_mutex);
    ++_counts.put_off;
}

void Counters::count_sent(std::chrono::duration<double> took,
                          std::chrono::duration<double> since_due) {
    const auto* const bucket =
        std::lower_bound(Counts::bounds.begin(), Counts::bounds.end(), took.count());
    const std::lock_guard lock(_mutex);
    ++_counts.ends[Counts::Sent];
    ++_counts.buckets.at(static_cast<std::size_t>(bucket - Counts::bounds.begin()));
    _counts.seconds += took.count();
    _counts.waited += since_due.count();
}

Counts Counters::read() const {
    const std::lock_guard lock(_mutex);
    return _counts;
}

}  // namespace host::outbox
