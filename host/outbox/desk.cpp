#include "host/outbox/desk.h"

#include <utility>

namespace host::outbox {

bool Desk::_serve(SteadyStore& store, std::span<Request* const> requests) const {
    std::vector<Finish> ends;
    std::vector<Begin> begins;
    for (const Request* request : requests) {
        ends.insert(ends.end(), request->ends.begin(), request->ends.end());
        if (request->begin) begins.push_back(*request->begin);
    }
    std::vector<bool> held;
    std::vector<Begun> begun;
    if (!store.run([&](Store& outbox, std::string& error) {
            held.clear();
            begun.clear();
            return outbox.exchange(ends, begins, _lease, held, begun, error);
        }))
        return false;
    begun.resize(begins.size());
    auto answer = begun.begin();
    for (Request* request : requests)
        if (request->begin) request->begun = *answer++;
    return true;
}

bool Desk::exchange(SteadyStore& store, std::span<const Finish> ends,
                    const std::optional<Begin>& begin, Begun& begun) {
    Request own{ends, begin, begun};
    std::unique_lock lock(_mutex);
    _waiting.push_back(&own);
    _changed.wait(lock, [&] { return own.served || !_busy; });
    if (own.served) return own.good;

    _busy = true;
    const std::vector<Request*> requests = std::exchange(_waiting, {});
    lock.unlock();
    const bool good = _serve(store, requests);
    lock.lock();
    for (Request* request : requests) {
        request->served = true;
        request->good = good;
    }
    _busy = false;
    _changed.notify_all();
    return good;
}

}  // namespace host::outbox
