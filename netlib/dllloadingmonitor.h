#ifndef QUOREL_NETLIB_DLLLOADINGMONITOR_H
#define QUOREL_NETLIB_DLLLOADINGMONITOR_H

#include "utils/etc/uttypes.h"
#include "utils/unix/utptmutex.h"

/// Counts who needs a resource: loaded for the first, unloaded after the last. Any thread may call
/// init() and fini(); derived classes load and unload while _mutex is held.
class DLLLoadingMonitor {
  public:
    DLLLoadingMonitor() = default;
    DLLLoadingMonitor(const DLLLoadingMonitor&) = delete;
    DLLLoadingMonitor& operator=(const DLLLoadingMonitor&) = delete;
    virtual ~DLLLoadingMonitor();

    /// False when loading failed; then no fini() is due.
    virtual a_bool init();
    /// Does nothing when nothing is loaded.
    virtual void fini();

  protected:
    /// After an unload: forget what was loaded.
    virtual void _clear() {}
    virtual a_bool _do_load() = 0;
    virtual void _do_unload() = 0;

    void* _dll = nullptr;
    uint32 _count = 0;  // init() calls in force; guarded by _mutex
    UTCriticalSection _mutex;
};

#endif
