#ifndef QUOREL_HOST_XPCALL_SIGNALS_H
#define QUOREL_HOST_XPCALL_SIGNALS_H

#include "host/callframe.h"

namespace host {

/// While it lives, SIGINT, SIGTERM and SIGHUP cancel the call of `frame`. A second signal, and one
/// that comes later, ends the program as it would without us. Those that the program was started to
/// ignore stay ignored. One object at a time.
class CancelledBySignals {
  public:
    explicit CancelledBySignals(CallFrame& frame);
    CancelledBySignals(const CancelledBySignals&) = delete;
    CancelledBySignals& operator=(const CancelledBySignals&) = delete;
    ~CancelledBySignals();
};

}  // namespace host

#endif
