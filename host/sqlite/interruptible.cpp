#include "host/sqlite/interruptible.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <pthread.h>

#include "host/quietthread.h"

namespace host {

namespace {

// How long an interrupt may go unnoticed. SQLite calls nobody back for one, so it is asked for.
constexpr std::chrono::milliseconds probe_interval(25);

class Worker {
  public:
    explicit Worker(CallFrame& frame) : _frame(frame) {}

    bool start() { return start_quiet_thread(&Worker::run, this, &_thread); }

    // True when the call has ended within the interval.
    bool ended_within(std::chrono::milliseconds interval) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, interval, [this] { return _ended; });
    }

    bool join(std::string& error) {
        pthread_join(_thread, nullptr);
        error = std::move(_error);
        return _called;
    }

  private:
    static void* run(void* self) {
        auto& worker = *static_cast<Worker*>(self);
        worker._called = worker._frame.call(worker._error);
        const std::lock_guard lock(worker._mutex);
        worker._ended = true;
        worker._changed.notify_one();
        return nullptr;
    }

    CallFrame& _frame;
    pthread_t _thread{};
    bool _called = false;  // with _error: the thread's until it is joined
    std::string _error;
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _ended = false;  // guarded by _mutex
};

}  // namespace

InterruptProbe::InterruptProbe(sqlite3* db) {
    int code = SQLITE_OK;
    _statement = prepare(db, "SELECT 1", code);
    _interrupted = code == SQLITE_INTERRUPT;
}

bool InterruptProbe::interrupted() {
    if (_interrupted || _statement == nullptr) return _interrupted;
    _interrupted = sqlite3_step(_statement.get()) == SQLITE_INTERRUPT;
    sqlite3_reset(_statement.get());
    return _interrupted;
}

bool call_interruptibly(sqlite3* db, CallFrame& frame, std::string& error) {
    Worker worker(frame);
    if (!worker.start()) return frame.call(error);

    InterruptProbe probe(db);
    while (!worker.ended_within(probe_interval)) {
        if (!probe.interrupted()) continue;
        // With its command dead the call returns by itself. Until then it uses the values.
        frame.cancel();
        break;
    }
    return worker.join(error);
}

}  // namespace host
