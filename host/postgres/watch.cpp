#include "host/postgres/watch.h"

#include "host/quietthread.h"

namespace host {

Watch::Watch(CallFrame& frame, bool (*should_stop)(), std::chrono::milliseconds deadline)
    : _frame(frame), _should_stop(should_stop), _deadline(deadline) {
    _started = start_quiet_thread(_run, this, &_thread);
}

Watch::~Watch() {
    end();
}

bool Watch::end() {
    if (_started) {
        {
            const std::lock_guard lock(_mutex);
            _over = true;
            _changed.notify_one();
        }
        pthread_join(_thread, nullptr);
        _started = false;
    }
    return _was_too_long;
}

void* Watch::_run(void* self) {
    static_cast<Watch*>(self)->_look();
    return nullptr;
}

void Watch::_look() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begun = Clock::now();
    std::unique_lock lock(_mutex);
    while (!_changed.wait_for(lock, Engine::probe_interval, [this] { return _over; })) {
        _was_too_long = _deadline.count() > 0 && Clock::now() - begun >= _deadline;
        if (!_was_too_long && !_should_stop()) continue;
        _frame.cancel();
        return;
    }
}

}  // namespace host
