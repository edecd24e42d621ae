#ifndef QUOREL_HOST_OUTBOX_DESK_H
#define QUOREL_HOST_OUTBOX_DESK_H

#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "host/outbox/steadystore.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// Where the sessions of a process tell the outbox what became of their deliveries. Those that come
/// while one is being served are served together, in one transaction: it is the commit that costs.
///
/// Safe on any thread.
class Desk {
  public:
    explicit Desk(Pause lease) : _lease(lease) {}

    /// Store::exchange() for one session. `ends` and `store` are used by whichever session's turn
    /// it is, until this returns. False when the outbox is lost for good.
    bool exchange(SteadyStore& store, std::span<const Finish> ends,
                  const std::optional<Begin>& begin, Begun& begun);

  private:
    struct Request {
        std::span<const Finish> ends;
        const std::optional<Begin>& begin;
        Begun& begun;
        bool served = false;
        bool good = false;
    };

    bool _serve(SteadyStore& store, std::span<Request* const> requests) const;

    const Pause _lease;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<Request*> _waiting;  // guarded by _mutex
    bool _busy = false;              // guarded by _mutex
};

}  // namespace host::outbox

#endif
