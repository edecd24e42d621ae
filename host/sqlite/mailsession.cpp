#include "host/sqlite/mailsession.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>

#include "host/callframe.h"
#include "host/sqlite/quietthread.h"

namespace host {

namespace {

// Connections may close until the process is gone, so this stays.
struct Connections {
    std::mutex mutex;
    std::set<std::int32_t> with_mail;
};

Connections& connections() {
    static auto& all = *new Connections;
    return all;
}

bool forget(std::int32_t connection) {
    const std::lock_guard lock(connections().mutex);
    return connections().with_mail.erase(connection) != 0;
}

// Shared by the thread that says good-bye and the one that waits for it.
struct Farewell {
    Library library;
    const std::int32_t connection;
    std::mutex mutex;
    std::condition_variable changed;
    bool over = false;  // guarded by mutex
};

void stop_session(Farewell& farewell) {
    CallFrame frame(farewell.library, *find_procedure("xp_stopsmtp"), farewell.connection);
    std::string ignored;
    frame.call(ignored);
}

void* run(void* given) {
    const std::unique_ptr<std::shared_ptr<Farewell>> owned(
        static_cast<std::shared_ptr<Farewell>*>(given));
    Farewell& farewell = **owned;
    stop_session(farewell);
    // In time, so that it is not this thread that unloads the library while the program ends.
    farewell.library = {};
    const std::lock_guard lock(farewell.mutex);
    farewell.over = true;
    farewell.changed.notify_one();
    return nullptr;
}

}  // namespace

void note_mail_call(const Procedure& procedure, std::int32_t connection) {
    if (procedure.name != "xp_startsmtp") return;
    const std::lock_guard lock(connections().mutex);
    connections().with_mail.insert(connection);
}

void end_mail_session(const Library& library, std::int32_t connection) {
    if (!forget(connection)) return;
    auto farewell = std::shared_ptr<Farewell>(new Farewell{library, connection, {}, {}, false});
    auto given = std::make_unique<std::shared_ptr<Farewell>>(farewell);
    // Without a thread the session stays: its server could hold the closing connection for ever.
    if (!start_quiet_thread(run, given.get())) return;
    static_cast<void>(given.release());  // the thread owns it now
    std::unique_lock lock(farewell->mutex);
    farewell->changed.wait_for(lock, std::chrono::seconds(longest_farewell),
                               [&farewell] { return farewell->over; });
}

}  // namespace host
