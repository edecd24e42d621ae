#include "providers/openssl/opensslerror.h"

#include <openssl/err.h>

bool fail_openssl(qxci::ErrorRecord& error, a_dbqxci_error code, const char* parm) {
    const unsigned long newest = ERR_peek_last_error();
    // Want of memory lies below the errors that it has led to.
    while (const unsigned long reason = ERR_get_error()) {
        if (ERR_GET_REASON(reason) == ERR_R_MALLOC_FAILURE) return error.fail(QxciErrNoMemory);
    }
    return error.fail(code, parm, static_cast<uint32_t>(newest));
}
