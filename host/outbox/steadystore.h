#ifndef QUOREL_HOST_OUTBOX_STEADYSTORE_H
#define QUOREL_HOST_OUTBOX_STEADYSTORE_H

#include <functional>
#include <string>

#include "host/outbox/journal.h"
#include "host/outbox/store.h"
#include "host/outbox/watch.h"

namespace host::outbox {

/// An outbox for one session, which outlives losses of its database. For one thread.
class SteadyStore {
  public:
    using Operation = std::function<bool(Store& store, std::string& error)>;

    /// `patience`: how long to try before it gives up; zero: until the process stops. All outlive
    /// the object.
    SteadyStore(Store& store, Watch& watch, Journal& journal, std::chrono::seconds patience)
        : _store(store), _watch(watch), _journal(journal), _patience(patience) {}

    /// Whose turn it is when a database is back.
    enum class Turn { Any, Tells, Claims };

    /// Does an operation that can be repeated, again and again with growing pauses and a new
    /// connection each time until it succeeds. False when it never did: patience was over, or the
    /// process stops and has tried for a while longer.
    bool run(const Operation& operation, Turn turn = Turn::Any);

    /// Once, with a new connection where the last one is lost: for a thread that others wait for.
    bool try_once(const Operation& operation);

  private:
    bool _repeat(const Operation& operation, Turn turn);
    [[nodiscard]] bool _gives_up(Watch::Clock::time_point since) const;

    Store& _store;
    Watch& _watch;
    Journal& _journal;
    const std::chrono::seconds _patience;
    bool _is_open = false;
};

}  // namespace host::outbox

#endif
