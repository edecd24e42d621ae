// new and delete of the product, over the allocation layer: one policy for running out of memory
// (new ends the process, new (std::nothrow) is null), and no part of the C++ run time that throws,
// whose reserve for exceptions would stay behind at every unloading.

#include <algorithm>
#include <new>

#include "utils/utmem/utmem.h"

void* operator new(std::size_t size) {
    return ut_alloc(std::max<std::size_t>(size, 1));
}

void* operator new[](std::size_t size) {
    return ut_alloc(std::max<std::size_t>(size, 1));
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return ut_malloc(std::max<std::size_t>(size, 1));
}

void operator delete(void* block) noexcept {
    ut_free(block);
}

void operator delete[](void* block) noexcept {
    ut_free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    ut_free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    ut_free(block);
}
