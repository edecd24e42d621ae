#ifndef QUOREL_HOST_OUTBOX_GROUPCOMMIT_H
#define QUOREL_HOST_OUTBOX_GROUPCOMMIT_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/outbox/store.h"

namespace host::outbox {

/// One connection for what many threads write. A commit waits for the disk: whatever the others
/// want to exchange meanwhile goes with the next one, in a single transaction. That one waits for
/// those who took part in the last one, if they come soon. Safe on any thread.
class GroupCommit {
  public:
    explicit GroupCommit(std::unique_ptr<Store> store) : _store(std::move(store)) {}

    /// Store::exchange(). The connection is opened where it is not. Fails alone, or with all others
    /// when the database is away.
    bool exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                  std::vector<bool>& held, std::vector<Begun>& begun, std::string& error);

    /// Another operation of the store, by itself.
    using Operation = std::function<bool(Store&, std::string& error)>;
    bool run(const Operation& operation, std::string& error);

  private:
    using Clock = std::chrono::steady_clock;

    struct Job {
        std::span<const Finish> ends;
        std::span<const Begin> begins;
        Pause lease;
        std::vector<bool>& held;
        std::vector<Begun>& begun;
        std::string& error;
        bool good = false;
        bool done = false;
    };

    bool _try(const Operation& operation, std::string& error);
    bool _exchange(Job& job);
    bool _exchange_all(const std::vector<Job*>& jobs, std::string& error);
    void _end(const std::vector<Job*>& jobs);

    std::mutex _mutex;
    std::condition_variable _turn;
    std::condition_variable _joined;
    // Guarded by _mutex. Whoever sets _busy has the store.
    bool _busy = false;
    std::vector<Job*> _waiting;
    std::size_t _expected = 1;  // how many exchange at the same time
    Clock::duration _last{0};   // what the last commit took

    const std::unique_ptr<Store> _store;
    bool _is_open = false;
};

}  // namespace host::outbox

#endif
