#ifndef QUOREL_KOVCERT_QXCI_QXCIMUTEX_H
#define QUOREL_KOVCERT_QXCI_QXCIMUTEX_H

/// Mutexes over an owner's callbacks. None is recursive.

#include "kovcert/qxci/qxci.h"
#include "utils/contain/utlist.h"

/// A lock that does not lock, for what one thread has to itself.
class DBQXCIBaseMutex : public c_utils_base {
  public:
    DBQXCIBaseMutex() = default;
    virtual ~DBQXCIBaseMutex() = default;
    DBQXCIBaseMutex(const DBQXCIBaseMutex&) = delete;
    DBQXCIBaseMutex& operator=(const DBQXCIBaseMutex&) = delete;

    virtual void get() {}
    virtual void give() {}

    // For UTLock.
    void lock() { get(); }
    void unlock() { give(); }
};

/// A mutex made from an owner's callbacks. Without mutex_create_cb, or when that has none to give,
/// it does not lock.
class DBQXCIMutex : public DBQXCIBaseMutex {
  public:
    /// `callbacks` is copied, so that the mutex may outlive what the table came from.
    DBQXCIMutex(const a_qxci_callbacks& callbacks, void* global_context);
    ~DBQXCIMutex() override;

    void get() override;
    void give() override;

  private:
    void* _handle = nullptr;
    const a_qxci_callbacks _callbacks;
    void* const _global_context;
};

#endif
