#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINENV_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINENV_H

/// The environment of the built-in provider, what a QXCIEnvironmentH of it points at: the way to
/// the owner's memory. It does not change, so any number of threads may use it.

#include "kovcert/qxci/qxci.h"

class BuiltinEnv {
  public:
    BuiltinEnv(const a_qxci_callbacks* callbacks, void* context)
        : _callbacks(callbacks), _context(context) {}

    static BuiltinEnv* of(QXCIEnvironmentH env) { return reinterpret_cast<BuiltinEnv*>(env); }
    QXCIEnvironmentH handle() { return reinterpret_cast<QXCIEnvironmentH>(this); }

    /// Null when the owner has no memory to give.
    void* alloc(size_t size) const { return _callbacks->alloc_cb(_context, size); }
    /// Ignores null.
    void free(void* memory) const { _callbacks->free_cb(_context, memory); }
    /// Null when there is no memory.
    char* strdup(const char* text) const;

  private:
    const a_qxci_callbacks* const _callbacks;  // the owner's
    void* const _context;
};

#endif
