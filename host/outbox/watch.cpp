#include "host/outbox/watch.h"

#include <algorithm>
#include <cstdint>
#include <thread>

#include <sys/eventfd.h>

namespace host::outbox {

Watch::Watch() : _wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool Watch::take(std::chrono::milliseconds longest) {
    std::unique_lock lock(_mutex);
    _given_back.wait_for(lock, longest, [this] { return !_taken || stopping(); });
    if (_taken || stopping()) return false;
    return _taken = true;
}

void Watch::give_back() {
    const std::lock_guard lock(_mutex);
    _taken = false;
    _given_back.notify_one();
}

void Watch::poke() {
    const std::uint64_t one = 1;
    // Where it is full somebody has poked before.
    static_cast<void>(!write(_wake.number(), &one, sizeof one));
}

void Watch::clear() {
    std::uint64_t count = 0;
    if (!stopping()) static_cast<void>(!read(_wake.number(), &count, sizeof count));
}

void Watch::stop() {
    const std::lock_guard lock(_mutex);
    if (!stopping()) _stopped_at = Clock::now().time_since_epoch().count();
    _stopping = true;
    poke();
    _given_back.notify_all();
    _roused.notify_all();
}

void Watch::stop_at_once() {
    stop();
    _at_once = true;
}

Watch::Clock::duration Watch::stopping_for() const {
    if (!stopping()) return Clock::duration::zero();
    return Clock::now().time_since_epoch() - Clock::duration(_stopped_at.load());
}

void Watch::pause(std::chrono::milliseconds duration) {
    constexpr std::chrono::milliseconds moment(100);
    if (stopping()) return std::this_thread::sleep_for(std::min(duration, moment));
    std::unique_lock lock(_mutex);
    _roused.wait_for(lock, duration,
                     [this, before = _returns] { return stopping() || _returns != before; });
}

void Watch::owe() {
    const std::lock_guard lock(_mutex);
    ++_owing;
}

void Watch::told() {
    const std::lock_guard lock(_mutex);
    --_owing;
    _roused.notify_all();
}

void Watch::let_others_tell() {
    constexpr std::chrono::seconds longest(2);
    std::unique_lock lock(_mutex);
    ++_returns;
    _roused.notify_all();
    _roused.wait_for(lock, longest, [this] { return _owing == 0 || stopping(); });
}

}  // namespace host::outbox
