#ifndef QUOREL_HOST_POSTGRES_OWNGROUP_H
#define QUOREL_HOST_POSTGRES_OWNGROUP_H

namespace host {

/// While it lives, a process that this thread forks leads a process group of its own, and gets
/// SIGKILL when this process ends. The server signals a backend together with its group: that would
/// end a command alone, and whatever it has started in the background would stay, behind the back
/// of the backend that is about to end it all. The command gets none of the backend's descriptors
/// but the standard ones: what it leaves in the background would keep the client's connection open.
class OwnGroup {
  public:
    OwnGroup();
    OwnGroup(const OwnGroup&) = delete;
    OwnGroup& operator=(const OwnGroup&) = delete;
    ~OwnGroup();
};

}  // namespace host

#endif
