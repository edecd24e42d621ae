#ifndef QUOREL_UTILS_DSS_UTBIGINT_H
#define QUOREL_UTILS_DSS_UTBIGINT_H

/// Unsigned integers of up to 2048 bits.
///
/// Values may be secret: except where stated, the time that an operation takes and the memory that
/// it touches do not depend on them, and every integer is wiped when it goes. Nothing allocates.
///
/// Threads: plain values; any number of threads may read one that none changes.

#include <cstddef>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utwipe.h"

/// The unit of arithmetic, and the type that holds the product of two with two units added.
#if defined(__LP64__)
using a_limb = uint64;
__extension__ typedef unsigned __int128 a_double_limb;
#else
using a_limb = uint32;
using a_double_limb = uint64;
#endif

constexpr unsigned limb_bits = sizeof(a_limb) * 8;

class UTBigInt {
  public:
    static constexpr unsigned max_bits = 2048;
    static constexpr std::size_t max_limbs = max_bits / limb_bits;

    explicit UTBigInt(a_limb value = 0) : limb{value} {}
    UTBigInt(const UTBigInt&) = default;
    UTBigInt& operator=(const UTBigInt&) = default;
    ~UTBigInt() { ut_wipe(limb, sizeof limb); }

    /// Takes `len` bytes, the most significant first; leading zeros are fine. False when the value
    /// does not fit; it is then zero.
    a_bool set_bytes(const a_byte* bytes, std::size_t len);

    /// Stores the low `len` bytes of the value, the most significant first.
    void get_bytes(a_byte* bytes, std::size_t len) const;

    /// Bits without leading zeros, 0 for zero. Takes time that depends on the value.
    unsigned bits() const;

    /// Bit number `position`, counted from 0 and less than max_bits, as 0 or 1.
    a_limb bit(unsigned position) const {
        return (limb[position / limb_bits] >> (position % limb_bits)) & 1;
    }

    a_bool is_zero() const { return *this == UTBigInt(); }
    a_bool operator==(const UTBigInt& other) const;
    a_bool operator<(const UTBigInt& other) const;

    /// Subtracts modulo 2^max_bits. Returns the borrow, 0 or 1.
    a_limb subtract(const UTBigInt& other);

    /// The value divided by 2^count, `count` being less than max_bits.
    UTBigInt shifted_right(unsigned count) const;

    a_limb limb[max_limbs];  // the least significant first
};

// The same on the low `limbs` limbs of a number, for arithmetic on shorter ones.

/// to += addend; returns the carry.
a_limb ut_add_limbs(a_limb* to, const a_limb* addend, std::size_t limbs);

/// to -= subtrahend; returns the borrow.
a_limb ut_subtract_limbs(a_limb* to, const a_limb* subtrahend, std::size_t limbs);

/// to += from * factor; returns what is carried into the limb above.
a_limb ut_add_product(a_limb* to, const a_limb* from, a_limb factor, std::size_t limbs);

/// Subtracts `modulus` from a number of `limbs` limbs with `carry` above them, unless the result
/// would be negative. The number is less than twice the modulus.
void ut_subtract_once(a_limb* number, a_limb carry, const a_limb* modulus, std::size_t limbs);

/// to = from when `choice` is 1, unchanged when it is 0.
void ut_choose_limbs(a_limb* to, const a_limb* from, std::size_t limbs, a_limb choice);

#endif
