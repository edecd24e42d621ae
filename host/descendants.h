#ifndef QUOREL_HOST_DESCENDANTS_H
#define QUOREL_HOST_DESCENDANTS_H

/// All that a command has started (Linux: PR_SET_CHILD_SUBREAPER, proc(5)).

#include "host/heldprocess.h"

namespace host {

/// While it lives, a process that this thread forks becomes the parent of every orphan among its
/// descendants, also behind an exec. So none of them gets out of end_descendants()'s reach, not by
/// setsid and not by a second fork. The calling process itself is not changed, and the orphans of a
/// command that has ended go where they would have gone.
class OrphansStay {
  public:
    OrphansStay();
    OrphansStay(const OrphansStay&) = delete;
    OrphansStay& operator=(const OrphansStay&) = delete;
    ~OrphansStay();
};

/// Stops `command`, a child of this process, and ends its descendants with SIGKILL: their children
/// become the command's, until it has none. Those that the caller may not signal stay, and so do
/// all where /proc is not there; it gives up after half a second. The command itself is left
/// stopped.
///
/// Safe on any thread and in a signal handler; keeps errno.
void end_descendants(const HeldProcess& command);

/// The same for what this process has started. It must be the parent of their orphans
/// (PR_SET_CHILD_SUBREAPER), and start nothing meanwhile.
void end_own_descendants();

}  // namespace host

#endif
