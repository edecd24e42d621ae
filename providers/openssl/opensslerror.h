#ifndef QUOREL_PROVIDERS_OPENSSL_OPENSSLERROR_H
#define QUOREL_PROVIDERS_OPENSSL_OPENSSLERROR_H

#include "kovcert/qxci/kit/errorrecord.h"

/// Records a failure, as ErrorRecord::fail(), with the newest of OpenSSL's errors on this thread as
/// the system code. They are taken off the thread; when one of them says that memory ran out, so
/// does the record.
bool fail_openssl(qxci::ErrorRecord& error, a_dbqxci_error code, const char* parm = nullptr);

#endif
