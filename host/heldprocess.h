#ifndef QUOREL_HOST_HELDPROCESS_H
#define QUOREL_HOST_HELDPROCESS_H

#include <cstdint>

#include <sys/types.h>

#include "host/descriptor.h"

namespace host {

/// A process that is never taken for a later one with the same number: held by a descriptor
/// (Linux: pidfd_open(2)), or by the time of its start where the kernel has no such descriptors.
///
/// Safe on any thread that has it for itself, and in a signal handler.
class HeldProcess {
  public:
    HeldProcess() = default;
    /// Holds nothing when there is no process `pid` whose parent is `parent`.
    HeldProcess(pid_t pid, pid_t parent);

    [[nodiscard]] pid_t pid() const { return _pid; }  ///< 0: holds nothing
    /// False with errno where kill() would say so; ESRCH once the process was waited for.
    [[nodiscard]] bool send(int signal_number) const;
    /// The same for a signal that carries `value`, as sigqueue() sends one.
    [[nodiscard]] bool queue(int signal_number, int value) const;

  private:
    pid_t _pid = 0;
    Descriptor _descriptor;
    std::uint64_t _started = 0;  // clock ticks after boot
};

}  // namespace host

#endif
