#include "host/outbox/room.h"

namespace host::outbox {

Room::Place::Place(Room& room, std::uint64_t bytes)
    : _room(room), _bytes(bytes), _is_in(bytes == 0) {
    if (_is_in) return;
    const std::lock_guard lock(_room._mutex);
    _ticket = ++_room._last_ticket;
    _room._line.insert(_ticket);
}

Room::Place::~Place() {
    if (_bytes == 0) return;
    {
        const std::lock_guard lock(_room._mutex);
        if (_is_in) _room._used -= _bytes;
        _room._line.erase(_ticket);
    }
    _room._changed.notify_all();
}

bool Room::Place::_may_enter() const {
    return *_room._line.begin() == _ticket &&
           (_room._used == 0 || _room._used + _bytes <= _room._size);
}

bool Room::Place::enter(std::chrono::milliseconds longest) {
    if (_is_in) return true;
    {
        std::unique_lock lock(_room._mutex);
        _is_in = _room._changed.wait_for(lock, longest, [this] { return _may_enter(); });
        if (!_is_in) return false;
        _room._used += _bytes;
        _room._line.erase(_ticket);
    }
    // There may be room for the next one too.
    _room._changed.notify_all();
    return true;
}

}  // namespace host::outbox
