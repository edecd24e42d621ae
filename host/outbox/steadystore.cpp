#include "host/outbox/steadystore.h"

#include "host/outbox/pauses.h"

namespace host::outbox {

namespace {

using namespace std::chrono_literals;

constexpr Pauses reconnects{100ms, 15s};

// What was sent is worth some waiting, or it will be sent again.
constexpr auto last_patience = 10s;

}  // namespace

bool SteadyStore::_gives_up(Watch::Clock::time_point since) const {
    if (_watch.at_once() || _watch.stopping_for() > last_patience) return true;
    return _patience.count() > 0 && Watch::Clock::now() - since > _patience;
}

bool SteadyStore::try_once(const Operation& operation) {
    std::string error;
    if (!_is_open) _is_open = _store.open(error);
    if (_is_open) _is_open = operation(_store, error);
    if (!_is_open) _journal.say("the outbox is away: " + error);
    return _is_open;
}

bool SteadyStore::run(const Operation& operation, Turn turn) {
    if (try_once(operation)) return true;
    if (turn == Turn::Tells) _watch.owe();
    const bool good = _repeat(operation, turn);
    if (turn == Turn::Tells) _watch.told();
    // Its next claim may come at once.
    if (good) _watch.let_others_tell();
    return good;
}

bool SteadyStore::_repeat(const Operation& operation, Turn turn) {
    const Operation nothing = [](Store&, std::string&) { return true; };
    const Watch::Clock::time_point begin = Watch::Clock::now();
    for (std::uint32_t failures = 1; !_gives_up(begin); ++failures) {
        // A connection that was lost while nobody used it is made anew at once.
        if (failures > 1) _watch.pause(reconnects.after(failures - 1));
        if (turn == Turn::Claims && try_once(nothing)) _watch.let_others_tell();
        if (!try_once(operation)) continue;
        if (failures > 1) _journal.say("the outbox is back");
        return true;
    }
    return false;
}

}  // namespace host::outbox
