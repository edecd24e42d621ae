#ifndef QUOREL_NETLIB_NETUTIL_STATE_H
#define QUOREL_NETLIB_NETUTIL_STATE_H

/// What Init() sets up and the files of TcpUtil share.

#include "netlib/netinterface.h"
#include "utils/contain/utlist.h"
#include "utils/unix/utptmutex.h"

namespace TcpUtil {

/// One reading of the host's interfaces; owns its entries.
class a_ni_reading : public c_utils_link {
  public:
    a_ni_reading() = default;
    a_ni_reading(const a_ni_reading&) = delete;
    a_ni_reading& operator=(const a_ni_reading&) = delete;
    ~a_ni_reading() override;

    NetworkInterface_list list;
    unsigned long count = 0;
};

/// In force between the first Init() and the last Fini(); outside of that the locks do not exist.
/// No two of them are held at once.
extern a_critical_sect ThreadCritSect;  // one _gethostbyname or _gethostbyaddr at a time
extern a_critical_sect NICritSect;      // NIList

/// The readings handed out, the current one last. The former ones are kept, for someone may still
/// walk them; one is added only when the interfaces have changed. Guarded by NICritSect.
extern c_utils_list<a_ni_reading>& NIList;

}  // namespace TcpUtil

#endif
