#include "host/postgres/backend.h"

#include "host/mailsession.h"
#include "host/worker/openengine.h"

namespace host {

namespace {

constexpr std::chrono::milliseconds longest_leave(1000);
constexpr const char* remedy =
    "install it beside the extension's module, or name its file in quorel.library";

struct Backend {
    std::shared_ptr<const Engine> engine;  // null: none yet
    bool in_worker = false;
    std::string library;
    std::int32_t connection = 0;
};

// It goes with the process, whose end is no time to unload a library.
Backend& backend() {
    static auto& only = *new Backend;
    return only;
}

}  // namespace

std::shared_ptr<const Engine> backend_engine(const QuorelSettings& settings, std::string& error) {
    Backend& it = backend();
    if (it.engine != nullptr && it.in_worker == settings.in_worker &&
        it.library == settings.library)
        return it.engine;
    leave_backend_engine();
    it.in_worker = settings.in_worker;
    it.library = settings.library;
    it.connection = settings.connection;
    const Place place = it.in_worker ? Place::InWorker : Place::InProcess;
    it.engine = open_engine(place, it.library, remedy, error, ProcessGroup::Own);
    return it.engine;
}

void leave_backend_engine() {
    Backend& it = backend();
    if (it.engine != nullptr) end_mail_sessions(it.engine, it.connection, longest_leave);
    it.engine = nullptr;
}

}  // namespace host
