#ifndef QUOREL_TESTS_NETLIB_SCARCEMEMORY_H
#define QUOREL_TESTS_NETLIB_SCARCEMEMORY_H

#include <cstdint>
#include <cstdlib>

#include "utils/utmem/utmem.h"

/// While it lives, the allocation layer has nothing for requests of more than so many bytes, nor
/// for the one request that comes after so many others.
class ScarceMemory {
  public:
    explicit ScarceMemory(size_t largest_request = 0) : ScarceMemory(largest_request, -1, free) {}
    /// What is given back goes to `give_back`.
    static ScarceMemory after(int good_requests, void (*give_back)(void*) = free) {
        return ScarceMemory(SIZE_MAX, good_requests, give_back);
    }
    ~ScarceMemory() { utmem_set_source(nullptr); }
    ScarceMemory(const ScarceMemory&) = delete;

    /// Whether that one request has come.
    static bool has_failed() { return left < 0; }

  private:
    ScarceMemory(size_t largest_request, int good_requests, void (*give_back)(void*))
        : _source{allocate, std::realloc, give_back, [] { return false; }} {
        largest = largest_request;
        left = good_requests;
        utmem_set_source(&_source);
    }

    static void* allocate(size_t size) {
        return left-- == 0 || size > largest ? nullptr : std::malloc(size);
    }

    static inline size_t largest;
    static inline int left;

    const a_utmem_source _source;
};

#endif
