#ifndef QUOREL_UTILS_UTMEM_UTMEM_H
#define QUOREL_UTILS_UTMEM_UTMEM_H

/// The allocation layer: plain functions over the system allocator with one policy for running out
/// of memory, and UTHeap, the token that says which heap an object's memory belongs to.
///
/// What these functions return goes back through ut_free(), UTHeap::Free() or uifree(), which are
/// the same. All of them may be called from any thread.
///
/// The policy. When the system allocator fails, the out-of-memory hook is asked whether it could
/// release memory; if so, the request is tried once more. What follows when there still is none:
///
///   null             ut_malloc, ut_calloc, ut_memdup, ut_realloc of null
///   the process ends ut_alloc, ut_strdup, ut_realloc of a block
///
/// so that a non-zero ut_alloc() never returns null. UTHeap follows the functions behind it, so
/// that only its Realloc() of null may yield null. In this build the hook always says no.
/// uimalloc() alone does not ask it.

#include <cstddef>

/// `size` bytes, not cleared; null for size 0. Ends the process when there is no memory.
void* ut_alloc(size_t size);

/// `size` bytes, not cleared; null for size 0 and when there is no memory.
void* ut_malloc(size_t size);

/// Like ut_malloc(), filled with zeros.
void* ut_calloc(size_t size);

/// A copy of the `size` bytes at `block`, made like ut_malloc(); null when `block` is null.
void* ut_memdup(const void* block, size_t size);

/// Resizes `block` and returns its new place; size 0 frees it and returns null.
/// Kept: a null `block` allocates like ut_malloc() and may yield null, while resizing never does:
/// it ends the process when there is no memory.
void* ut_realloc(void* block, size_t size);

/// Frees `block`; null is ignored.
void ut_free(void* block);

/// A copy of `text` made like ut_alloc(); null for null.
char* ut_strdup(const char* text);

// Plain variants for callers outside the library.
void* uimalloc(size_t size);  // null for size 0 and when there is no memory; no hook
void* uicalloc(size_t count,
               size_t size);  // ut_calloc(count * size); null if the product overflows
void* uirealloc(void* block, size_t size);  // ut_realloc
void uifree(void* block);                   // ut_free

// Memory tracking is not part of this build: these do nothing, and ut_trackmem() returns 0.
int ut_trackmem();
void ut_start_trackmem();
void ut_stop_trackmem();

/// Records for the rest of the process that memory handling was aborted.
void utmem_abort();
bool utmem_is_aborted();

/// The out-of-memory hook: true if memory was released, so that a failed request is worth a retry.
/// False in this build.
bool ut_out_of_memory();

/// Reports `message`, unless it is null, as a line on standard output and, under the product's
/// label, on standard error; then ends the process with status 1 without running exit handlers.
[[noreturn]] void ut_fatal(const char* message);

/// Says which heap an object's memory belongs to; there is one. Without state: any instance frees
/// what another allocated.
class UTHeap {
  public:
    void* Alloc(size_t size) const { return ut_alloc(size); }
    void Free(void* block) const { ut_free(block); }
    void* Realloc(void* block, size_t size) const { return ut_realloc(block, size); }
    char* Strdup(const char* text) const { return ut_strdup(text); }

    /// A terminated copy of at most the first `length` characters of `text`; null for null.
    char* Strndup(const char* text, size_t length) const;
};

/// What the layer stands on; a test puts an allocator of its own here.
struct a_utmem_source {
    void* (*allocate)(size_t size);  // like malloc, also for free
    void* (*resize)(void* block, size_t size);
    void (*release)(void* block);
    bool (*out_of_memory)();  // the hook
};

/// Replaces the source from now on; null puts the system's allocator and ut_out_of_memory() back.
/// `source` is not copied.
void utmem_set_source(const a_utmem_source* source);

#endif
