#include "host/outbox/session.h"

#include <algorithm>
#include <optional>

namespace host::outbox {

namespace {

using namespace std::chrono_literals;

// A batch that is done sooner is followed by one of twice the size: what waits in a session's hand
// is kept from the others for as long.
constexpr auto short_batch = 500ms;
constexpr int longest_batch = 64;

// Between two looks at an outbox of which nothing is heard, and at one where what is due cannot be
// had for the moment.
constexpr Pause longest_rest = 1min;
constexpr Pause shortest_rest = 50ms;

// With Rules::once somebody waits for the end.
constexpr auto short_patience = 30s;

}  // namespace

Session::Session(Shared& shared, Store& store, const Engine& engine)
    : _shared(shared),
      _store(store, shared.watch, shared.journal, shared.rules.once ? short_patience : 0s),
      _claims(_store, shared.rules.lease), _line(engine), _sender(shared, _store, _claims, _line) {}

bool Session::run() {
    bool good = true;
    while (good && !_shared.watch.stopping()) {
        if (!(good = _look_for_work())) break;
        if (!_claims.empty())
            good = _work();
        else if (_shared.rules.once)
            break;
        else
            good = _rest();
    }
    _give_back_watch();
    _line.close();
    return good;
}

bool Session::_look_for_work() {
    if (_watching) _shared.watch.clear();
    return _claims.take(_batch);
}

bool Session::_work() {
    // Where there is work for one there may be for two.
    _give_back_watch();
    const Clock::time_point begin = Clock::now();
    const bool good = _sender.send_all();
    _idle_since = Clock::now();
    if (_sender.has_to_wait()) _shared.watch.pause(shortest_rest);
    _batch = _idle_since - begin < short_batch ? std::min(_batch * 2, longest_batch) : 1;
    return good;
}

bool Session::_rest() {
    if (_idle_left().count() == 0) _line.close();
    if (_watching) return _watch_outbox();
    _watching = _shared.watch.take(_line.is_open() ? _idle_left() : longest_rest);
    return true;
}

bool Session::_watch_outbox() {
    std::optional<Pause> due;
    if (!_store.run([&due](Store& store, std::string& error) {
            due.reset();
            return store.next_due(due, error);
        }))
        return false;
    Pause longest = std::clamp(due.value_or(longest_rest), shortest_rest, longest_rest);
    if (_line.is_open()) longest = std::min(longest, _idle_left());
    // When the outbox is lost here, the look that follows finds it again.
    _store.try_once([&](Store& store, std::string& error) {
        return store.wait(longest, _shared.watch.descriptor(), error);
    });
    return true;
}

Pause Session::_idle_left() const {
    const auto left = _shared.rules.idle - (Clock::now() - _idle_since);
    return std::max(std::chrono::ceil<Pause>(left), Pause(0));
}

void Session::_give_back_watch() {
    if (_watching) _shared.watch.give_back();
    _watching = false;
}

}  // namespace host::outbox
