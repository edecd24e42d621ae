#include "host/worker/calllimits.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace host {

CallLimits::CallLimits(const WorkerProcess& worker) : _worker(worker) {}

// Nobody cancels between two calls.
void CallLimits::begin(int number, const Engine::Interrupted& interrupted) {
    const Clock::time_point now = Clock::now();
    if (_process != getpid()) {
        _wake = above_standard(Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
        _process = getpid();
    }
    _number = number;
    _interrupted = &interrupted;
    _given = std::chrono::milliseconds(_allowed.load());
    _deadline = _given.count() > 0 ? now + _given : never;
    const bool probes = interrupted || !_wake.is_open();
    _next_probe = probes ? now + Engine::probe_interval : never;
    _kill = never;
    _reason = Reason::None;
}

void CallLimits::cancel(int number) {
    const int saved = errno;
    _cancelled.store(number);
    [[maybe_unused]] const int written = eventfd_write(_wake.number(), 1);
    errno = saved;
}

void CallLimits::_stop(Reason reason, Clock::time_point now) {
    _reason = reason;
    _kill = now + grace;
    _worker.cancel(_number);
}

bool CallLimits::go_on() {
    const Clock::time_point now = Clock::now();
    if (_reason != Reason::None) return now < _kill;
    if (_cancelled.load() == _number) {
        _stop(Reason::Cancelled, now);
    } else if (now >= _deadline) {
        _stop(Reason::TooLong, now);
    } else if (now >= _next_probe) {
        _next_probe = now + Engine::probe_interval;
        if (*_interrupted && (*_interrupted)()) _stop(Reason::Cancelled, now);
    }
    return true;
}

// Rounded up, or the last fraction of a millisecond would be spent asking.
int CallLimits::_milliseconds_left(Clock::time_point now) const {
    const Clock::time_point next =
        _reason == Reason::None ? std::min(_deadline, _next_probe) : _kill;
    if (next == never) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    constexpr std::chrono::milliseconds::rep longest = 60000;
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left, 0, longest));
}

bool CallLimits::wait(short events) {
    while (go_on()) {
        pollfd descriptors[] = {{_worker.socket(), events, 0}, {_wake.number(), POLLIN, 0}};
        poll(descriptors, std::size(descriptors), _milliseconds_left(Clock::now()));
        if (descriptors[0].revents != 0) return true;
        eventfd_t woken = 0;
        if (descriptors[1].revents != 0) eventfd_read(_wake.number(), &woken);
    }
    return false;
}

std::string CallLimits::allowed() const {
    std::string text = std::to_string(_given.count() / 1000);
    std::string fraction = std::to_string(1000 + _given.count() % 1000);
    fraction[0] = '.';
    fraction.erase(fraction.find_last_not_of("0.") == std::string::npos
                       ? 0
                       : fraction.find_last_not_of('0') + 1);
    return text + fraction + " s";
}

}  // namespace host
