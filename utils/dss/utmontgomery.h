#ifndef QUOREL_UTILS_DSS_UTMONTGOMERY_H
#define QUOREL_UTILS_DSS_UTMONTGOMERY_H

/// Products by Montgomery's method: the codes behind UTModulus, for utils/dss itself, which
/// chooses, and for tests, which compare.

#include "utils/dss/utbigint.h"

/// An odd number greater than 1, and what the method needs of it.
struct a_montgomery_modulus {
    UTBigInt value;
    std::size_t limbs = 0;        // without leading zeros
    a_limb negative_inverse = 0;  // -1 / value, modulo 2^limb_bits
};

/// The time that a product takes and the memory that it touches depend on the modulus alone.
struct a_montgomery_code {
    /// The method's R is 2 to this power, and greater than a modulus of so many bits.
    unsigned (*r_bits)(unsigned modulus_bits);

    /// a * b / R modulo the modulus, which both are less than.
    UTBigInt (*multiply)(const a_montgomery_modulus& modulus, const UTBigInt& a, const UTBigInt& b);
};

extern const a_montgomery_code ut_montgomery_plain;  // runs on any processor
#if !defined(__LP64__)
extern const a_montgomery_code ut_montgomery_sse2;  // for ut_cpu_has_sse2()
#endif

#endif
