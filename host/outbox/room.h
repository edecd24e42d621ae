#ifndef QUOREL_HOST_OUTBOX_ROOM_H
#define QUOREL_HOST_OUTBOX_ROOM_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>

namespace host::outbox {

/// Memory that the sessions of a process share: each could hold a large mail, and all together more
/// than there is.
///
/// Safe on any thread.
class Room {
  public:
    explicit Room(std::uint64_t bytes) : _size(bytes) {}

    /// A place in the line for so many bytes and, once let in, in the room. Who came first is let
    /// in first, or a large mail would wait for as long as small ones come. For one thread, and for
    /// less time than its room is there.
    class Place {
      public:
        /// No bytes need no room.
        Place(Room& room, std::uint64_t bytes);
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        /// Whether it is in; waits for that, for `longest` at most. What is larger than the room
        /// has it alone.
        bool enter(std::chrono::milliseconds longest);

      private:
        [[nodiscard]] bool _may_enter() const;

        Room& _room;
        const std::uint64_t _bytes;
        std::uint64_t _ticket = 0;
        bool _is_in;
    };

  private:
    const std::uint64_t _size;
    std::mutex _mutex;
    std::condition_variable _changed;
    // Guarded by _mutex.
    std::uint64_t _used = 0;
    std::uint64_t _last_ticket = 0;
    std::set<std::uint64_t> _line;  // tickets
};

}  // namespace host::outbox

#endif
