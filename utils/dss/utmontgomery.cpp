#include "utils/dss/utmontgomery.h"

#include <algorithm>

namespace {

unsigned r_bits(unsigned modulus_bits) {
    return (modulus_bits + limb_bits - 1) / limb_bits * limb_bits;
}

/// For each limb of b, adds its product with a, and then the multiple of the modulus that makes the
/// lowest limb zero, which is left behind.
UTBigInt multiply(const a_montgomery_modulus& modulus, const UTBigInt& a, const UTBigInt& b) {
    const std::size_t limbs = modulus.limbs;
    a_limb sums[2 * UTBigInt::max_limbs];
    std::fill_n(sums, 2 * limbs, a_limb{0});
    a_limb top = 0;
    for (std::size_t i = 0; i < limbs; ++i) {
        a_limb* const sum = sums + i;
        const a_limb carry = ut_add_product(sum, a.limb, b.limb[i], limbs);
        const a_limb multiple = sum[0] * modulus.negative_inverse;
        const a_limb other_carry = ut_add_product(sum, modulus.value.limb, multiple, limbs);
        const a_double_limb above = static_cast<a_double_limb>(top) + carry + other_carry;
        sum[limbs] = static_cast<a_limb>(above);
        top = static_cast<a_limb>(above >> limb_bits);
    }
    ut_subtract_once(sums + limbs, top, modulus.value.limb, limbs);
    UTBigInt result;
    std::copy_n(sums + limbs, limbs, result.limb);
    ut_wipe(sums, sizeof sums);
    return result;
}

}  // namespace

const a_montgomery_code ut_montgomery_plain = {r_bits, multiply};
