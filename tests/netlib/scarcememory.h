#ifndef QUOREL_TESTS_NETLIB_SCARCEMEMORY_H
#define QUOREL_TESTS_NETLIB_SCARCEMEMORY_H

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string_view>

#include "utils/utmem/utmem.h"

/// While it lives, the allocation layer has nothing for requests of more than so many bytes, nor
/// for the one request that comes after so many others.
class ScarceMemory {
  public:
    using Look = void (*)(std::string_view bytes);

    explicit ScarceMemory(size_t largest_request = 0) : ScarceMemory(largest_request, -1, {}) {}
    /// `look` is shown what is given back.
    static ScarceMemory after(int good_requests, Look look = {}) {
        return ScarceMemory(SIZE_MAX, good_requests, look);
    }
    ~ScarceMemory() { utmem_set_source(nullptr); }
    ScarceMemory(const ScarceMemory&) = delete;

    /// Whether that one request has come.
    static bool has_failed() { return left < 0; }

  private:
    ScarceMemory(size_t largest_request, int good_requests, Look shown) {
        largest = largest_request;
        left = good_requests;
        look = shown;
        utmem_set_source(&source);
    }

    static void* allocate(size_t size) {
        if (left-- == 0 || size > largest) return nullptr;
        // What it held before is not to be mistaken for what its owner left in it.
        void* const block = std::calloc(1, size);
        sizes[block] = size;
        return block;
    }
    static void give_back(void* block) {
        const auto known = sizes.extract(block);
        if (look && known) look({static_cast<const char*>(block), known.mapped()});
        std::free(block);
    }

    static inline size_t largest;
    static inline int left;
    static inline Look look;
    static inline std::map<void*, size_t> sizes;
    static constexpr a_utmem_source source = {allocate, std::realloc, give_back,
                                              [] { return false; }};
};

#endif
