#ifndef QUOREL_HOST_OUTBOX_CIRCUITS_H
#define QUOREL_HOST_OUTBOX_CIRCUITS_H

#include <chrono>
#include <map>
#include <mutex>
#include <string>

#include "host/outbox/store.h"

namespace host::outbox {

/// What the sessions of this process have learned of the accounts' mail servers since their lists
/// of accounts were read: so that none of them calls where another one has just met silence, and
/// one alone tries again.
///
/// Safe on any thread.
class Circuits {
  public:
    enum class Way {
        Open,    ///< mail goes there
        Probe,   ///< it was away: this session alone tries, until well(), away() or leave()
        Blocked  ///< it is away, or another session tries
    };

    /// Before a session turns to `account`, as it was read from the outbox.
    Way enter(const Account& account);

    /// A message was taken, or a recipient refused. True when the server was away before.
    bool well(const Account& account);
    /// Nobody goes there for `pause`. False when that was known.
    bool away(const std::string& account, Pause pause);
    /// A message did not go, and it may have been the server's fault; true when that was one too
    /// many, or the session was the probing one.
    bool doubt(const std::string& account);
    /// The probing session has learned nothing.
    void leave(const std::string& account);

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr unsigned most_doubts = 5;

    struct State {
        Clock::time_point away_until;
        bool probing = false;
        bool recovered = false;  // since it was away
        unsigned doubts = 0;     // in a row
    };

    std::mutex _mutex;
    std::map<std::string, State> _states;  // by account; guarded by _mutex
};

}  // namespace host::outbox

#endif
