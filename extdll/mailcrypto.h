#ifndef QUOREL_EXTDLL_MAILCRYPTO_H
#define QUOREL_EXTDLL_MAILCRYPTO_H

#include "kovcert/qxci/qxci.h"

/// What mail sessions provide to crypto providers: memory of the process heap, mutexes of the pool
/// (utils/unix/utptmutex.h) and thread numbers. No log, and no threads. The global context is not
/// used. Every callback may be called from any thread.
extern const a_qxci_callbacks mail_crypto_callbacks;

#endif
