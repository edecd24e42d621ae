#ifndef QUOREL_HOST_WORKER_WORKERPROCESS_H
#define QUOREL_HOST_WORKER_WORKERPROCESS_H

#include <chrono>
#include <string>

#include "host/descriptor.h"
#include "host/heldprocess.h"

namespace host {

/// The descriptor that a worker finds its end of the socket at.
inline constexpr int worker_socket = 3;

/// Which process group a worker and its commands are in. A host whose own group is signalled while
/// it waits for a call gives them one of their own: the signal would end a command behind its back.
enum class ProcessGroup { Hosts, Own };

/// A running quorel-worker, or none, as its host holds it: the guard, and this end of the socket.
class WorkerProcess {
  public:
    WorkerProcess() = default;
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;
    ~WorkerProcess() { end(); }

    /// Starts the program at `path`, with the standard descriptors, the environment and the folder
    /// of this process, no other descriptor, and every signal with its default and blocked: it
    /// takes those that it wants once it is ready. False with a sentence in `error`.
    bool start(const std::string& path, ProcessGroup group, std::string& error);

    [[nodiscard]] bool started() const { return _pid > 0; }
    [[nodiscard]] int socket() const { return _socket.number(); }

    /// True when nothing has come from it that is not read yet, and it has not ended.
    [[nodiscard]] bool is_idle() const;

    /// Has it cancel the call of this number.
    void cancel(int call) const;

    /// Ends it: the end of the socket lets it leave by itself, and after `patience` it and all that
    /// it started are killed. Then there is none. Gives, in words, how it ended: "was ended by
    /// SIGSEGV (Segmentation fault)".
    std::string end(std::chrono::milliseconds patience = std::chrono::milliseconds(0));

  private:
    [[nodiscard]] bool _is_ours() const;
    bool _wait(std::chrono::milliseconds patience, int& status);

    pid_t _pid = 0;
    pid_t _host = 0;  // that started it: not a later copy of this process
    HeldProcess _held;
    Descriptor _socket;
};

}  // namespace host

#endif
