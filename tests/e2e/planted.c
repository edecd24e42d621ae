/* A provider library that lies where none may be loaded from, or is of another version: it says so
 * when it is loaded. */
#include <stdio.h>

#include "kovcert/qxci/qxci.h"

__attribute__((constructor)) static void loaded(void) {
    fputs("planted library loaded\n", stderr);
}

a_qxci_version QXCIGetVersion(void) {
    const a_qxci_version other = {QXCI_API_MAJOR, QXCI_API_MINOR - 1, QXCI_IMPL_ID, 1};
    return other;
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    (void)iface;
    return QXCI_OK;
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    (void)iface;
    return QXCI_OK;
}
