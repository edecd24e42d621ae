#ifndef QUOREL_UTILS_DIGEST_UTCRC32_H
#define QUOREL_UTILS_DIGEST_UTCRC32_H

/// CRC-32 as in ISO 3309 and RFC 1952 section 8: polynomial 0x04c11db7, bits taken lowest first,
/// started from and finished with all ones; "123456789" gives cbf43926. It finds accidental damage
/// and protects nothing. The time taken depends on the data through table lookups.

#include <cstddef>

#include "utils/etc/uttypes.h"

class UTCRC32 {
  public:
    void begin() { _register = ~uint32{0}; }

    /// Adds `len` bytes. `data` may be null when `len` is 0.
    void add(const void* data, std::size_t len);

    /// The checksum of what was added since begin() or construction; more may be added after.
    uint32 value() const { return ~_register; }

  private:
    uint32 _register = ~uint32{0};
};

#endif
