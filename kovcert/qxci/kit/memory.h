#ifndef QUOREL_KOVCERT_QXCI_KIT_MEMORY_H
#define QUOREL_KOVCERT_QXCI_KIT_MEMORY_H

#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include <string.h>

#include "kovcert/qxci/qxci.h"

namespace qxci {

/// The owner's memory and log behind an environment. Does not change, so that any number of threads
/// may use it.
class Memory {
  public:
    /// The table is the owner's and has alloc_cb and free_cb; no other callback is needed.
    Memory(const a_qxci_callbacks* callbacks, void* global_context)
        : _callbacks(callbacks), _context(global_context) {}

    /// Null when the owner has no memory to give.
    void* alloc(size_t size) const { return _callbacks->alloc_cb(_context, size); }
    /// Ignores null.
    void free(void* memory) const { _callbacks->free_cb(_context, memory); }

    /// A copy with a zero byte behind it; null when there is no memory.
    char* copy(std::string_view text) const {
        char* const made = static_cast<char*>(alloc(text.size() + 1));
        if (made == nullptr) return nullptr;
        made[text.copy(made, text.size())] = '\0';
        return made;
    }
    /// For a text that may be a secret. Ignores null.
    void wipe_and_free(char* text) const {
        if (text != nullptr) explicit_bzero(text, std::strlen(text));
        free(text);
    }

    /// A new T; null when there is no memory.
    template <class T, class... Args>
    T* make(Args&&... args) const {
        static_assert(alignof(T) <= alignof(std::max_align_t), "what alloc_cb aligns for");
        void* const place = alloc(sizeof(T));
        return place == nullptr ? nullptr : new (place) T(std::forward<Args>(args)...);
    }
    /// Ends what make() has made. Any object may hold a key, so all of its memory is wiped. Ignores
    /// null.
    template <class T>
    void destroy(T* object) const {
        if (object == nullptr) return;
        object->~T();
        void* const place = object;
        explicit_bzero(place, sizeof(T));
        free(place);
    }

    /// A line for the owner's log, if it has one. The lower the level, the more important.
    void log(int level, const char* text) const {
        if (_callbacks->log_cb != nullptr) _callbacks->log_cb(_context, level, text, nullptr, 0);
    }

  private:
    const a_qxci_callbacks* const _callbacks;
    void* const _context;
};

}  // namespace qxci

#endif
