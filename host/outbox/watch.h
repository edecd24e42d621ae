#ifndef QUOREL_HOST_OUTBOX_WATCH_H
#define QUOREL_HOST_OUTBOX_WATCH_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "host/descriptor.h"

namespace host::outbox {

/// How the sessions of a process rest. One of them watches the outbox; when it finds work it gives
/// the watch to the next, who looks for work first: so a single message wakes one session or two,
/// and a thousand wake all.
///
/// Safe on any thread.
class Watch {
  public:
    using Clock = std::chrono::steady_clock;

    Watch();

    /// Waits for the watch, for `longest` at most; false: not got, or the process is to stop.
    bool take(std::chrono::milliseconds longest);
    void give_back();

    /// What the watching session waits on beside the outbox: readable once somebody poked.
    [[nodiscard]] int descriptor() const { return _wake.number(); }
    /// The watching session is to look for work.
    void poke();
    /// Before it looks.
    void clear();

    /// Everything is to end, after the message in hand.
    void stop();
    /// The same, without waiting for that message.
    void stop_at_once();
    [[nodiscard]] bool stopping() const { return _stopping.load(); }
    [[nodiscard]] bool at_once() const { return _at_once.load(); }
    /// How long stop() is ago; zero before.
    [[nodiscard]] Clock::duration stopping_for() const;

    /// Sleeps, at most a moment when the process is to stop; not on when the outbox is back.
    void pause(std::chrono::milliseconds duration);

    /// A session has outcomes that the outbox could not be told, until told(). Once their leases
    /// are over, those who claim would take what was sent for lost.
    void owe();
    void told();
    /// The outbox is back: those who owe it something are woken, and have a while before others
    /// claim.
    void let_others_tell();

  private:
    const Descriptor _wake;
    std::mutex _mutex;
    std::condition_variable _given_back;
    std::condition_variable _roused;
    // Guarded by _mutex.
    bool _taken = false;
    int _owing = 0;
    unsigned _returns = 0;  // of the outbox
    std::atomic<bool> _stopping{false};
    std::atomic<bool> _at_once{false};
    std::atomic<Clock::rep> _stopped_at{0};
};

}  // namespace host::outbox

#endif
