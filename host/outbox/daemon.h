#ifndef QUOREL_HOST_OUTBOX_DAEMON_H
#define QUOREL_HOST_OUTBOX_DAEMON_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <pthread.h>

#include "host/outbox/metrics.h"
#include "host/outbox/options.h"
#include "host/outbox/session.h"
#include "host/outbox/stopsignals.h"
#include "host/outbox/stores.h"
#include "host/worker/workerfiles.h"

namespace host::outbox {

/// The sessions of one process, and what it tells of itself.
class Daemon {
  public:
    /// `options` outlives it.
    explicit Daemon(const Options& options);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon();

    /// Sends until it is told to stop, or nothing is due. An ExitStatus.
    int run();

  private:
    struct Thread;

    bool _prepare(std::string& error);
    bool _start_threads(std::string& error);
    void _wait_for_end();
    void _heed_signals();
    void _write_metrics();
    [[nodiscard]] int _exit_status();

    const Options& _options;
    const std::string _name;
    StopSignals _signals;
    Shared _shared;
    WorkerFiles _files;
    std::optional<Stores> _stores;
    std::unique_ptr<Store> _store;  // of the main thread
    std::optional<SteadyStore> _steady;
    std::vector<std::unique_ptr<Thread>> _threads;
    Descriptor _ended;  // counts the sessions that have ended
    int _stops = 0;     // that were asked for
};

}  // namespace host::outbox

#endif
