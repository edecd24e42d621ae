#include "extdll/extfn.h"

#include <cerrno>
#include <csignal>

uint32_t extfn_use_new_api(void) {
    return EXTFN_API_VERSION;
}

void extfn_cancel(void* cancel_handle) {
    const auto* const record = static_cast<const a_cancel_info*>(cancel_handle);
    if (record == nullptr || record->fn != CANCEL_CMDSHELL) return;
    // Zero and negative ids name process groups, the host's own among them.
    if (record->handle.cmd_pid <= 0) return;
    const int saved_errno = errno;
    kill(record->handle.cmd_pid, SIGKILL);
    errno = saved_errno;
}
