#include "host/worker/calllimits.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace host {

void CancelWish::make() {
    const int saved = errno;
    _made.store(true);
    if (const int wake = _wake.load(); wake >= 0) eventfd_write(wake, 1);
    errno = saved;
}

CallLimits::CallLimits(std::chrono::milliseconds allowed, const Engine::Interrupted& interrupted,
                       const CancelWish& wish)
    : _allowed(allowed), _interrupted(interrupted), _wish(wish),
      _deadline(allowed.count() > 0 ? Clock::now() + allowed : never) {}

bool CallLimits::take_turn(Turn& turn) {
    while (!turn.try_lock_for(Engine::probe_interval)) {
        _next_probe = at_once;
        go_on();
        if (_reason != Reason::None) return false;
    }
    return true;
}

void CallLimits::begin(const WorkerProcess& worker, int number, int wake) {
    _worker = &worker;
    _number = number;
    _wake = wake;
    const bool probes = _interrupted || wake < 0;
    _next_probe = probes ? Clock::now() + Engine::probe_interval : never;
}

void CallLimits::_stop(Reason reason, Clock::time_point now) {
    _reason = reason;
    _kill = now + Engine::grace;
    if (_worker != nullptr) _worker->cancel(_number);
}

bool CallLimits::go_on() {
    const Clock::time_point now = Clock::now();
    if (_reason != Reason::None) return now < _kill;
    if (_wish.is_made()) {
        _stop(Reason::Cancelled, now);
    } else if (now >= _deadline) {
        _stop(Reason::TooLong, now);
    } else if (now >= _next_probe) {
        _next_probe = now + Engine::probe_interval;
        if (_interrupted && _interrupted()) _stop(Reason::Cancelled, now);
    }
    return true;
}

// True when `events` are there. False when it is time to ask go_on().
bool CallLimits::_poll(int descriptor, short events, Clock::time_point until) const {
    constexpr std::chrono::milliseconds::rep longest = 60000;
    int patience = -1;
    if (until != never) {
        // Rounded up, or the last fraction of a millisecond would be spent asking.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        patience =
            static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, longest));
    }
    pollfd descriptors[] = {{descriptor, events, 0}, {_wake, POLLIN, 0}};
    poll(descriptors, std::size(descriptors), patience);
    if (descriptors[0].revents != 0) return true;
    eventfd_t woken = 0;
    if (descriptors[1].revents != 0) eventfd_read(_wake, &woken);
    return false;
}

bool CallLimits::wait(short events) {
    while (go_on())
        if (_poll(_worker->socket(), events,
                  _reason == Reason::None ? std::min(_deadline, _next_probe) : _kill))
            return true;
    return false;
}

bool CallLimits::wait_for(int descriptor, short events) {
    while (_reason == Reason::None) {
        if (_poll(descriptor, events, std::min(_deadline, _next_probe))) return true;
        go_on();
    }
    // What is ready is still taken: the procedure may come to its own end.
    if (_poll(descriptor, events, at_once)) return true;
    _host_gave_up = true;
    return false;
}

std::string CallLimits::allowed() const {
    std::string text = std::to_string(_allowed.count() / 1000);
    std::string fraction = std::to_string(1000 + _allowed.count() % 1000);
    fraction[0] = '.';
    fraction.erase(fraction.find_last_not_of("0.") == std::string::npos
                       ? 0
                       : fraction.find_last_not_of('0') + 1);
    return text + fraction + " s";
}

}  // namespace host
