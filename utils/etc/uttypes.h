#ifndef QUOREL_UTILS_ETC_UTTYPES_H
#define QUOREL_UTILS_ETC_UTTYPES_H

/// The plain types that every layer of the library shares.

#include <cstdint>

using int8 = std::int8_t;
using int16 = std::int16_t;
using int32 = std::int32_t;
using int64 = std::int64_t;
using uint16 = std::uint16_t;
using uint32 = std::uint32_t;
using uint64 = std::uint64_t;

/// One byte of data, as opposed to a character of text.
using a_byte = unsigned char;

/// A truth value in what headers declare, interfaces and records. Bodies say bool, and so
/// does utils/utmem, which lies below.
using a_bool = bool;

#endif
