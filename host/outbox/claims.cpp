#include "host/outbox/claims.h"

#include <utility>

namespace host::outbox {

bool Claims::take(int limit) {
    std::vector<Delivery> claimed;
    const auto claim = [&](Store& store, std::string& error) {
        claimed.clear();
        _leased = Clock::now();
        return store.claim(limit, _lease, claimed, error);
    };
    const bool good = _store.run(claim, SteadyStore::Turn::Claims);
    _taken = Clock::now();
    _next_look = _leased + _lease / 3;
    _waiting.assign(std::make_move_iterator(claimed.begin()),
                    std::make_move_iterator(claimed.end()));
    return good;
}

const Delivery& Claims::next() {
    _current = std::move(_waiting.front());
    _waiting.pop_front();
    _in_hand = true;
    return _current;
}

bool Claims::_exchange(std::span<const Begin> begins, std::vector<Begun>& begun) {
    std::vector<bool> held;
    const auto exchange = [&](Store& store, std::string& error) {
        held.clear();
        begun.clear();
        return store.exchange(_ends, begins, _lease, held, begun, error);
    };
    const bool good = _store.run(exchange, SteadyStore::Turn::Tells);
    _ends.clear();
    return good;
}

bool Claims::begin(const std::string& account, Begun& begun) {
    const Begin start{_current.id, _current.token, account};
    std::vector<Begun> answers;
    if (!_exchange({&start, 1}, answers)) return false;
    begun = answers.empty() ? Begun() : answers.front();
    return true;
}

void Claims::end(Finish finish) {
    finish.delivery = _current.id;
    finish.token = _current.token;
    _ends.push_back(std::move(finish));
    _in_hand = false;
}

bool Claims::tell() {
    std::vector<Begun> none;
    return _ends.empty() || _exchange({}, none);
}

bool Claims::release_rest() {
    while (!_waiting.empty()) {
        next();
        end({});
    }
    return tell();
}

bool Claims::release_behind() {
    Delivery next_one = std::move(_waiting.front());
    _waiting.pop_front();
    const bool good = release_rest();
    _waiting.push_front(std::move(next_one));
    return good;
}

bool Claims::_extend() {
    std::vector<Held> claims;
    if (_in_hand) claims.push_back({_current.id, _current.token});
    for (const Delivery& delivery : _waiting) claims.push_back({delivery.id, delivery.token});
    std::vector<bool> held;
    const Clock::time_point now = Clock::now();
    const bool good = _store.try_once([&](Store& store, std::string& error) {
        held.clear();
        return store.extend(claims, _lease, held, error);
    });
    // The outbox is away. While the leases last nobody else has these.
    if (!good || held.size() != claims.size()) return now < _leased + _lease;
    _leased = now;
    const std::size_t before = _in_hand ? 1 : 0;
    for (std::size_t i = claims.size(); i-- > before;)
        if (!held[i]) _waiting.erase(_waiting.begin() + static_cast<long>(i - before));
    return !_in_hand || held.front();
}

bool Claims::keep() {
    const Clock::time_point now = Clock::now();
    if (now < _next_look) return true;
    const bool good = _extend();
    _next_look = Clock::now() + (_leased + _lease - now > _lease / 2 ? _lease / 3 : _lease / 10);
    return good;
}

}  // namespace host::outbox
