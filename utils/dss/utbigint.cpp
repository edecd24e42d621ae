#include "utils/dss/utbigint.h"

#include <bit>

a_bool UTBigInt::set_bytes(const a_byte* bytes, std::size_t len) {
    constexpr std::size_t max_bytes = max_bits / 8;
    *this = UTBigInt();
    a_byte overflow = 0;
    // Zeros may lead a number of any length.
    for (; len > max_bytes; --len) overflow |= *bytes++;
    if (overflow != 0) return false;
    for (std::size_t place = len; place-- > 0;) {
        const a_limb byte = *bytes++;
        limb[place / sizeof(a_limb)] |= byte << (place % sizeof(a_limb) * 8);
    }
    return true;
}

void UTBigInt::get_bytes(a_byte* bytes, std::size_t len) const {
    for (std::size_t place = len; place-- > 0; ++bytes) {
        const std::size_t at = place / sizeof(a_limb);
        *bytes = at >= max_limbs ? a_byte{0}
                                 : static_cast<a_byte>(limb[at] >> (place % sizeof(a_limb) * 8));
    }
}

unsigned UTBigInt::bits() const {
    for (std::size_t i = max_limbs; i-- > 0;) {
        if (limb[i] == 0) continue;
        return static_cast<unsigned>(i) * limb_bits +
               static_cast<unsigned>(std::bit_width(limb[i]));
    }
    return 0;
}

a_bool UTBigInt::operator==(const UTBigInt& other) const {
    // No early end: how many limbs agree must not show.
    a_limb differing = 0;
    for (std::size_t i = 0; i < max_limbs; ++i) differing |= limb[i] ^ other.limb[i];
    return differing == 0;
}

a_bool UTBigInt::operator<(const UTBigInt& other) const {
    UTBigInt difference = *this;
    return difference.subtract(other) != 0;
}

a_limb UTBigInt::subtract(const UTBigInt& other) {
    return ut_subtract_limbs(limb, other.limb, max_limbs);
}

UTBigInt UTBigInt::shifted_right(unsigned count) const {
    const std::size_t whole = count / limb_bits;
    const unsigned part = count % limb_bits;
    UTBigInt result;
    for (std::size_t i = 0; i + whole < max_limbs; ++i) {
        const std::size_t from = i + whole;
        result.limb[i] = limb[from] >> part;
        if (part != 0 && from + 1 < max_limbs) {
            result.limb[i] |= limb[from + 1] << (limb_bits - part);
        }
    }
    return result;
}

a_limb ut_add_limbs(a_limb* to, const a_limb* addend, std::size_t limbs) {
    a_limb carry = 0;
    for (std::size_t i = 0; i < limbs; ++i) {
        const a_double_limb sum = static_cast<a_double_limb>(to[i]) + addend[i] + carry;
        to[i] = static_cast<a_limb>(sum);
        carry = static_cast<a_limb>(sum >> limb_bits);
    }
    return carry;
}

a_limb ut_subtract_limbs(a_limb* to, const a_limb* subtrahend, std::size_t limbs) {
    a_limb borrow = 0;
    for (std::size_t i = 0; i < limbs; ++i) {
        const a_double_limb difference = static_cast<a_double_limb>(to[i]) - subtrahend[i] - borrow;
        to[i] = static_cast<a_limb>(difference);
        borrow = static_cast<a_limb>(difference >> limb_bits) & 1;
    }
    return borrow;
}

a_limb ut_add_product(a_limb* to, const a_limb* from, a_limb factor, std::size_t limbs) {
    a_limb carry = 0;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < limbs; ++i) {
        const a_double_limb sum = static_cast<a_double_limb>(factor) * from[i] + to[i] + carry;
        to[i] = static_cast<a_limb>(sum);
        carry = static_cast<a_limb>(sum >> limb_bits);
    }
    return carry;
}

void ut_choose_limbs(a_limb* to, const a_limb* from, std::size_t limbs, a_limb choice) {
    const a_limb mask = a_limb{0} - choice;
    for (std::size_t i = 0; i < limbs; ++i) to[i] ^= (to[i] ^ from[i]) & mask;
}

void ut_subtract_once(a_limb* number, a_limb carry, const a_limb* modulus, std::size_t limbs) {
    a_limb is_less = 0;  // the borrow of a subtraction whose result is not kept
    for (std::size_t i = 0; i < limbs; ++i) {
        const a_double_limb difference =
            static_cast<a_double_limb>(number[i]) - modulus[i] - is_less;
        is_less = static_cast<a_limb>(difference >> limb_bits) & 1;
    }
    // Subtracted in any case, the modulus or nothing: a branch would show which.
    const a_limb mask = a_limb{0} - (carry | (is_less ^ 1));
    a_limb borrow = 0;
    for (std::size_t i = 0; i < limbs; ++i) {
        const a_double_limb difference =
            static_cast<a_double_limb>(number[i]) - (modulus[i] & mask) - borrow;
        number[i] = static_cast<a_limb>(difference);
        borrow = static_cast<a_limb>(difference >> limb_bits) & 1;
    }
}
