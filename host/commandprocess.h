#ifndef QUOREL_HOST_COMMANDPROCESS_H
#define QUOREL_HOST_COMMANDPROCESS_H

/// The process of a running command and all that it started. (Linux: proc(5), pidfd_open(2),
/// PR_SET_CHILD_SUBREAPER.)

#include <cstdint>

#include <sys/types.h>

namespace host {

/// While it lives, a process that this thread forks becomes the parent of every orphan among its
/// descendants, also behind an exec. So none of them gets out of CommandProcess's reach, not by
/// setsid and not by a second fork. The calling process itself is not changed, and the orphans of a
/// command that has ended go where they would have gone.
class OrphansStay {
  public:
    OrphansStay();
    OrphansStay(const OrphansStay&) = delete;
    OrphansStay& operator=(const OrphansStay&) = delete;
    ~OrphansStay();
};

/// A process that is never taken for a later one with the same number: held by a descriptor, or by
/// the time of its start where the kernel has no such descriptors.
class HeldProcess {
  public:
    /// Holds nothing when there is no process `pid` whose parent is `parent`.
    HeldProcess(pid_t pid, pid_t parent);
    HeldProcess() = default;
    HeldProcess(const HeldProcess&) = delete;
    HeldProcess& operator=(const HeldProcess&) = delete;
    HeldProcess(HeldProcess&& other) noexcept { swap(other); }
    HeldProcess& operator=(HeldProcess&& other) noexcept;
    ~HeldProcess();

    void swap(HeldProcess& other);
    [[nodiscard]] pid_t pid() const { return _pid; }  ///< 0: holds nothing
    /// False with errno where kill() would say so; ESRCH once the process was waited for.
    [[nodiscard]] bool send(int signal_number) const;

  private:
    pid_t _pid = 0;
    int _descriptor = -1;
    std::uint64_t _started = 0;  // clock ticks after boot
};

/// Stops `command`, a child of this process, and ends its descendants with SIGKILL: their children
/// become the command's, until it has none. Those that the caller may not signal stay, and so do
/// all where /proc is not there; it gives up after half a second. The command itself is left
/// stopped.
///
/// Safe on any thread and in a signal handler; keeps errno.
void end_descendants(const HeldProcess& command);

}  // namespace host

#endif
