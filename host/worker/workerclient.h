#ifndef QUOREL_HOST_WORKER_WORKERCLIENT_H
#define QUOREL_HOST_WORKER_WORKERCLIENT_H

#include <memory>
#include <string>

#include "host/engine.h"
#include "host/worker/workerfiles.h"

namespace host {

/// The library in a process of its own, which begins with the first call and with the first one
/// after it has died. For one connection: its mail sessions live and die with it. Every call ends:
/// at its deadline or when it is cancelled what it waits for is cancelled, and a quarter of a
/// second later the worker is killed with all that its procedures have started. The next call gets
/// a fresh one.
///
/// A call that comes while another thread makes one waits for it, as long as its own deadline
/// allows, and is not made when it is cancelled meanwhile.
///
/// A worker gives way to a fresh one after so many mail sessions, when none is open, since the
/// library keeps some 70 bytes of each; but not once it has run a command, which may have left
/// something in the background.
class WorkerClient : public Engine {
  public:
    explicit WorkerClient(WorkerFiles files, unsigned most_sessions = 10'000);
    WorkerClient(const WorkerClient&) = delete;
    WorkerClient& operator=(const WorkerClient&) = delete;
    /// Lets the worker leave by itself, for at most a second.
    ~WorkerClient() override;

    CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                 const Interrupted& interrupted, std::string& error) const override;
    void cancel(void* record) const override;
    [[nodiscard]] bool ends_calls() const override { return true; }
    void set_deadline(std::chrono::milliseconds deadline) const override;
    [[nodiscard]] bool wait_for(int descriptor, short events) const override;
    [[nodiscard]] bool remembers() const override;

  private:
    class State;
    const std::unique_ptr<State> _state;
};

}  // namespace host

#endif
