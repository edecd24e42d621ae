#ifndef QUOREL_UTILS_UTMEM_UTWIPE_H
#define QUOREL_UTILS_UTMEM_UTWIPE_H

/// The one place that erases secrets.

#include <cstddef>

#include <string.h>

/// Overwrites `size` bytes at `data` with zeros, also when nothing reads them afterwards: a plain
/// memset before a free or a return may be removed by the compiler. Null with size 0 is allowed.
inline void ut_wipe(void* data, std::size_t size) {
    if (size != 0) explicit_bzero(data, size);
}

/// Bytes on the stack or in an object that are wiped when they go out of scope.
template <std::size_t Size>
struct a_wiped_bytes {
    a_wiped_bytes() = default;
    a_wiped_bytes(const a_wiped_bytes&) = delete;
    a_wiped_bytes& operator=(const a_wiped_bytes&) = delete;
    ~a_wiped_bytes() { ut_wipe(data, Size); }

    static constexpr std::size_t size = Size;
    unsigned char data[Size];
};

#endif
