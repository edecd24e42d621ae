/* Compiled as C11: what a provider written in C, and a loader built elsewhere, rely on. */

#include "kovcert/qxci/qxci.h"

_Static_assert(sizeof(a_qxci_version) == 8, "four 16-bit fields");
_Static_assert(offsetof(a_qxci_version, impl_ver) == 6, "in the documented order");
_Static_assert(sizeof(a_dbqxci_error) == 4, "32-bit codes");
_Static_assert(sizeof(a_qxci_side) == 4, "32-bit sides");
_Static_assert(offsetof(a_qxci_error, parm_list) == 8, "two 32-bit fields, then the list");
_Static_assert(QxciErrUnknown == 37 && QxciErrBadEncryptionAlgorithm == 21, "the list of codes");

#define ENTRIES(table) (sizeof(table) / sizeof(void (*)(void)))
_Static_assert(ENTRIES(a_qxci_callbacks) == 10, "callbacks");
_Static_assert(ENTRIES(a_qxci_conn_callbacks) == 5, "connection callbacks");
_Static_assert(ENTRIES(a_qxci_env_iface) == 10, "environment");
_Static_assert(ENTRIES(a_qxci_stream_iface) == 8, "streams");
_Static_assert(ENTRIES(a_qxci_conn_iface) == 6, "connections");
