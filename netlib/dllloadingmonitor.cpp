#include "netlib/dllloadingmonitor.h"

DLLLoadingMonitor::~DLLLoadingMonitor() = default;

a_bool DLLLoadingMonitor::init() {
    const UTLock lock(_mutex.mutex());
    if (!lock.is_held()) return false;
    // Counted afterwards, so that a failure leaves nothing to be undone.
    if (_count == 0 && !_do_load()) return false;
    ++_count;
    return true;
}

void DLLLoadingMonitor::fini() {
    const UTLock lock(_mutex.mutex());
    if (!lock.is_held() || _count == 0) return;
    if (--_count > 0) return;
    _do_unload();
    _clear();
    _dll = nullptr;
}
