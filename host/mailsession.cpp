#include "host/mailsession.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "host/quietthread.h"

namespace host {

namespace {

// Connections may close until the process is gone, so this stays.
struct Sessions {
    std::mutex mutex;
    std::map<std::int32_t, std::set<std::int32_t>> started;  // their numbers, by connection
};

Sessions& sessions() {
    static auto& all = *new Sessions;
    return all;
}

std::set<std::int32_t> take_sessions(std::int32_t connection) {
    const std::lock_guard lock(sessions().mutex);
    const auto node = sessions().started.extract(connection);
    return node ? std::move(node.mapped()) : std::set<std::int32_t>();
}

// Shared by the thread that says good-bye and the one that waits for it.
struct Farewell {
    std::shared_ptr<const Engine> engine;
    const std::set<std::int32_t> sessions;
    std::mutex mutex;
    std::condition_variable changed;
    bool over = false;  // guarded by mutex
};

// False when the call was ended.
bool stop_session(const Engine& engine, std::int32_t session) {
    CallFrame frame(engine, *find_procedure("xp_stopsmtp"), session);
    std::string ignored;
    return frame.call(ignored);
}

void stop_in_time(const Engine& engine, const std::set<std::int32_t>& started) {
    using Clock = std::chrono::steady_clock;
    // An end that is forced is over within the second, too.
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1) - Engine::grace;
    for (const std::int32_t session : started) {
        const auto left = std::chrono::floor<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) return;
        engine.set_deadline(left);
        if (!stop_session(engine, session)) return;
    }
}

void* run(void* given) {
    const std::unique_ptr<std::shared_ptr<Farewell>> owned(
        static_cast<std::shared_ptr<Farewell>*>(given));
    Farewell& farewell = **owned;
    for (const std::int32_t session : farewell.sessions) stop_session(*farewell.engine, session);
    // In time, so that it is not this thread that unloads the library while the program ends.
    farewell.engine = nullptr;
    const std::lock_guard lock(farewell.mutex);
    farewell.over = true;
    farewell.changed.notify_one();
    return nullptr;
}

}  // namespace

void note_mail_call(const Procedure& procedure, const CallFrame& frame, std::int32_t connection) {
    if (procedure.name != "xp_startsmtp") return;
    const std::lock_guard lock(sessions().mutex);
    sessions().started[connection].insert(frame.connection().value_or(connection));
}

void end_mail_sessions(std::shared_ptr<const Engine> engine, std::int32_t connection,
                       std::chrono::milliseconds patience) {
    std::set<std::int32_t> started = take_sessions(connection);
    if (started.empty()) return;
    if (!engine->remembers()) return;
    if (engine->ends_calls()) return stop_in_time(*engine, started);
    auto farewell = std::shared_ptr<Farewell>(
        new Farewell{std::move(engine), std::move(started), {}, {}, false});
    auto given = std::make_unique<std::shared_ptr<Farewell>>(farewell);
    // Without a thread the sessions stay: a server could hold the closing connection for ever.
    if (!start_quiet_thread(run, given.get())) return;
    static_cast<void>(given.release());  // the thread owns it now
    std::unique_lock lock(farewell->mutex);
    farewell->changed.wait_for(lock, patience, [&farewell] { return farewell->over; });
}

}  // namespace host
