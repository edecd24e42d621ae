#ifndef QUOREL_PROVIDERS_OPENSSL_OWNERMEMORY_H
#define QUOREL_PROVIDERS_OPENSSL_OWNERMEMORY_H

/// The owner's memory and log behind an environment. Does not change, so that any number of threads
/// may use it: nothing in this provider needs a mutex.

#include "kovcert/qxci/qxci.h"

class OwnerMemory {
  public:
    OwnerMemory(const a_qxci_callbacks* callbacks, void* context)
        : _callbacks(callbacks), _context(context) {}

    /// Null when the owner has no memory to give.
    void* alloc(size_t size) const { return _callbacks->alloc_cb(_context, size); }
    /// Ignores null.
    void free(void* memory) const { _callbacks->free_cb(_context, memory); }
    /// Null when there is no memory.
    char* strdup(const char* text) const;
    /// For text that may be a secret: wipes it first. Ignores null.
    void wipe_and_free(char* text) const;

    void log(int level, const char* text) const {
        if (_callbacks->log_cb != nullptr) _callbacks->log_cb(_context, level, text, nullptr, 0);
    }

  private:
    const a_qxci_callbacks* const _callbacks;  // the owner's
    void* const _context;
};

#endif
