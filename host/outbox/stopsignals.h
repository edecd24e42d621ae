#ifndef QUOREL_HOST_OUTBOX_STOPSIGNALS_H
#define QUOREL_HOST_OUTBOX_STOPSIGNALS_H

#include "host/descriptor.h"

namespace host::outbox {

/// The signals that a service manager or a person sends, as bytes to read: no thread is
/// interrupted. For one object in a process, made before its threads.
class StopSignals {
  public:
    StopSignals();

    /// Readable when one is there.
    [[nodiscard]] int descriptor() const { return _signals.number(); }
    /// How many there are that ask the process to stop. A SIGHUP is taken and asks for nothing.
    int read();

  private:
    Descriptor _signals;
};

}  // namespace host::outbox

#endif
