#ifndef QUOREL_HOST_OUTBOX_CLAIMS_H
#define QUOREL_HOST_OUTBOX_CLAIMS_H

#include <chrono>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "host/outbox/steadystore.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// The deliveries that a session has claimed: one in hand, those to come, and the outcomes of those
/// before, which are told to the outbox with the next attempt's start. For one thread.
///
/// Where an operation returns false the outbox is lost for good; what was claimed comes back when
/// its lease ends.
class Claims {
  public:
    using Clock = std::chrono::steady_clock;

    Claims(SteadyStore& store, Pause lease) : _store(store), _lease(lease) {}

    /// Claims up to `limit` more, when none is left.
    bool take(int limit);
    [[nodiscard]] bool empty() const { return _waiting.empty(); }
    /// When that was.
    [[nodiscard]] Clock::time_point taken() const { return _taken; }

    /// Those that wait, in the order in which they will be in hand, which may be changed.
    [[nodiscard]] std::deque<Delivery>& waiting() { return _waiting; }
    /// Takes the next one in hand.
    const Delivery& next();
    [[nodiscard]] const Delivery& current() const { return _current; }

    /// Puts the start of an attempt on record, with what is still to be told.
    bool begin(const std::string& account, Begun& begun);
    /// What became of the one in hand; told at the next begin() or tell().
    void end(Finish finish);
    bool tell();
    /// Gives all that wait back, and tells.
    bool release_rest();
    /// The same but for the next one, which is there.
    bool release_behind();

    /// To be called often: starts the leases anew before they end. False when the one in hand is
    /// not this session's any more, or may not be.
    bool keep();

  private:
    bool _exchange(std::span<const Begin> begins, std::vector<Begun>& begun);
    bool _extend();

    SteadyStore& _store;
    const Pause _lease;
    std::deque<Delivery> _waiting;
    Delivery _current;
    bool _in_hand = false;
    std::vector<Finish> _ends;
    Clock::time_point _taken;
    Clock::time_point _leased;     // when the leases began, at the latest
    Clock::time_point _next_look;  // when they are to be begun anew
};

}  // namespace host::outbox

#endif
