#include "host/outbox/circuits.h"

namespace host::outbox {

Circuits::Way Circuits::enter(const Account& account) {
    const std::lock_guard lock(_mutex);
    State& state = _states[account.name];
    if (account.away.count() > 0) state.recovered = false;
    if (account.away.count() > 0 || Clock::now() < state.away_until) return Way::Blocked;
    if (account.failures == 0 || state.recovered) return Way::Open;
    if (state.probing) return Way::Blocked;
    state.probing = true;
    return Way::Probe;
}

bool Circuits::well(const Account& account) {
    const std::lock_guard lock(_mutex);
    State& state = _states[account.name];
    const bool was_away = account.failures > 0 && !state.recovered;
    state = {};
    state.recovered = true;
    return was_away;
}

bool Circuits::away(const std::string& account, Pause pause) {
    const std::lock_guard lock(_mutex);
    State& state = _states[account];
    const Clock::time_point now = Clock::now();
    if (now < state.away_until) return false;
    state = {now + pause};
    return true;
}

bool Circuits::doubt(const std::string& account) {
    const std::lock_guard lock(_mutex);
    State& state = _states[account];
    return ++state.doubts >= most_doubts || state.probing;
}

void Circuits::leave(const std::string& account) {
    const std::lock_guard lock(_mutex);
    _states[account].probing = false;
}

}  // namespace host::outbox
