#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINERROR_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINERROR_H

/// What the built-in provider does with error records. Parameter lists live in the memory of the
/// environment; a record without parameters needs no environment, so `env` may be null for it. A
/// null record is ignored everywhere. When there is no memory for a parameter, the record goes
/// without: the code always gets through.

#include "kovcert/qxci/qxci.h"

/// Makes the record all zero and frees nothing.
void _QXCIError_Clear(a_qxci_error* rec);

/// Frees the parameters. The fields are left as they are.
void QXCIError_Destroy(QXCIEnvironmentH env, a_qxci_error* rec);

/// Replaces what the record says. `parm` becomes its only parameter; null: it has none.
void _QXCIError_SetError(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                         uint32_t system_code, const char* parm);
void _QXCIError_SetError(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                         const char* parm);

/// The same unless the record has a code already: the first error reported wins.
void _QXCIError_SetErrorIfOK(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                             uint32_t system_code, const char* parm);
void _QXCIError_SetErrorIfOK(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                             const char* parm);

/// Makes `dst` an independent copy of `src`. A list that is there but empty stays so.
void _QXCIError_Clone(QXCIEnvironmentH env, a_qxci_error* dst, const a_qxci_error* src);

#endif
