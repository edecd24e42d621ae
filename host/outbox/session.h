#ifndef QUOREL_HOST_OUTBOX_SESSION_H
#define QUOREL_HOST_OUTBOX_SESSION_H

#include "host/engine.h"
#include "host/outbox/sender.h"

namespace host::outbox {

/// One of the daemon's threads: looks for due messages, sends them, and rests when there are none.
class Session {
  public:
    /// `store` and `engine` are this session's alone; all outlive it.
    Session(Shared& shared, Store& store, const Engine& engine);

    /// Until the process stops; with Rules::once until nothing is due. False when the outbox was
    /// lost for good before that.
    bool run();

  private:
    using Clock = std::chrono::steady_clock;

    bool _look_for_work();
    bool _work();
    bool _rest();
    bool _watch_outbox();
    [[nodiscard]] Pause _idle_left() const;
    void _give_back_watch();

    Shared& _shared;
    SteadyStore _store;
    Claims _claims;
    MailLine _line;
    Sender _sender;
    bool _watching = false;
    int _batch = 1;
    Clock::time_point _idle_since;
};

}  // namespace host::outbox

#endif
