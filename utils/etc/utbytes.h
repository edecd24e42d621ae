#ifndef QUOREL_UTILS_ETC_UTBYTES_H
#define QUOREL_UTILS_ETC_UTBYTES_H

/// Integers of a fixed byte order at any address. "be" is most significant byte first, "le" last.

#include <cstring>

#include "utils/etc/uttypes.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "byte order of the processors supported");

inline uint32 ut_load_le32(const a_byte* from) {
    uint32 value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

inline uint32 ut_load_be32(const a_byte* from) {
    return __builtin_bswap32(ut_load_le32(from));
}

inline void ut_store_le32(a_byte* to, uint32 value) {
    std::memcpy(to, &value, sizeof value);
}

inline void ut_store_be32(a_byte* to, uint32 value) {
    ut_store_le32(to, __builtin_bswap32(value));
}

inline void ut_store_le64(a_byte* to, uint64 value) {
    std::memcpy(to, &value, sizeof value);
}

inline void ut_store_be64(a_byte* to, uint64 value) {
    ut_store_le64(to, __builtin_bswap64(value));
}

#endif
