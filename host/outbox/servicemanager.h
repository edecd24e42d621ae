#ifndef QUOREL_HOST_OUTBOX_SERVICEMANAGER_H
#define QUOREL_HOST_OUTBOX_SERVICEMANAGER_H

#include <string_view>

namespace host::outbox {

/// Tells the service manager that started this program of a change, as in "READY=1" (sd_notify(3)).
/// Does nothing where NOTIFY_SOCKET names no socket; what cannot be told is not.
void tell_service_manager(std::string_view change);

}  // namespace host::outbox

#endif
