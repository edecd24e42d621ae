#include "utils/dss/utmodulus.h"

#include <algorithm>

#include "utils/digest/utdigest.h"
#include "utils/etc/utbytes.h"
#include "utils/etc/utcpu.h"

namespace {

constexpr unsigned window_bits = 4;
constexpr unsigned window_size = 1 << window_bits;

/// The window of the exponent that begins at bit `lowest`; bits from `exponent_bits` on count as 0.
a_limb window_at(const UTBigInt& exponent, unsigned lowest, unsigned exponent_bits) {
    a_limb window = 0;
    for (unsigned i = 0; i < window_bits && lowest + i < exponent_bits; ++i) {
        window |= exponent.bit(lowest + i) << i;
    }
    return window;
}

/// 1 when a equals b, else 0; both are less than window_size.
a_limb equal(a_limb a, a_limb b) {
    return (((a ^ b) - 1) >> (limb_bits - 1)) & 1;
}

/// -1 / odd modulo 2^limb_bits. Each turn of Newton's method doubles the number of right bits,
/// from the three that any odd number has as its own inverse.
a_limb negative_inverse(a_limb odd) {
    a_limb inverse = odd;
    for (unsigned right_bits = 3; right_bits < limb_bits; right_bits *= 2) {
        inverse *= 2 - odd * inverse;
    }
    return a_limb{0} - inverse;
}

const a_montgomery_code* best_code() {
#if !defined(__LP64__)
    if (ut_cpu_has_sse2()) return &ut_montgomery_sse2;
#endif
    return &ut_montgomery_plain;
}

}  // namespace

UTModulus::UTModulus(const UTBigInt& modulus) : UTModulus(modulus, *ut_code_for_cpu<best_code>()) {}

UTModulus::UTModulus(const UTBigInt& modulus, const a_montgomery_code& code)
    : _code(&code), _bits(modulus.bits()), _r(1) {
    _modulus.value = modulus;
    _modulus.limbs = (_bits + limb_bits - 1) / limb_bits;
    _modulus.negative_inverse = negative_inverse(modulus.limb[0]);
    // R and its square by doubling: a division would be more code than the time is worth.
    const unsigned r_bits = code.r_bits(_bits);
    for (unsigned i = 0; i < r_bits; ++i) double_in_place(_r);
    _r_squared = _r;
    for (unsigned i = 0; i < r_bits; ++i) double_in_place(_r_squared);
}

void UTModulus::double_in_place(UTBigInt& number) const {
    const a_limb carry = ut_add_limbs(number.limb, number.limb, _modulus.limbs);
    ut_subtract_once(number.limb, carry, _modulus.value.limb, _modulus.limbs);
}

UTBigInt UTModulus::reduce(const UTBigInt& number) const {
    // Bit by bit and always all bits, since the number may be a secret. It is done a few times in a
    // signature, beside thousands of products.
    UTBigInt rest;
    for (unsigned position = UTBigInt::max_bits; position-- > 0;) {
        const a_limb carry = ut_add_limbs(rest.limb, rest.limb, _modulus.limbs);
        rest.limb[0] |= number.bit(position);
        ut_subtract_once(rest.limb, carry, _modulus.value.limb, _modulus.limbs);
    }
    return rest;
}

UTBigInt UTModulus::add(const UTBigInt& a, const UTBigInt& b) const {
    UTBigInt sum = a;
    const a_limb carry = ut_add_limbs(sum.limb, b.limb, _modulus.limbs);
    ut_subtract_once(sum.limb, carry, _modulus.value.limb, _modulus.limbs);
    return sum;
}

UTBigInt UTModulus::multiply(const UTBigInt& a, const UTBigInt& b) const {
    return montgomery_product(montgomery_product(a, _r_squared), b);
}

/// Fixed windows: for every window of the exponent the same squarings and one multiplication by a
/// power that is picked by reading all of them.
UTBigInt UTModulus::power(const UTBigInt& base, const UTBigInt& exponent,
                          unsigned exponent_bits) const {
    UTBigInt powers[window_size];
    powers[0] = _r;
    powers[1] = montgomery_product(base, _r_squared);
    for (unsigned i = 2; i < window_size; ++i)
        powers[i] = montgomery_product(powers[i - 1], powers[1]);

    UTBigInt result = _r;
    const unsigned windows = (exponent_bits + window_bits - 1) / window_bits;
    for (unsigned window = windows; window-- > 0;) {
        for (unsigned i = 0; i < window_bits; ++i) result = montgomery_product(result, result);
        const a_limb wanted = window_at(exponent, window * window_bits, exponent_bits);
        UTBigInt factor;
        for (unsigned i = 0; i < window_size; ++i) {
            ut_choose_limbs(factor.limb, powers[i].limb, _modulus.limbs, equal(i, wanted));
        }
        result = montgomery_product(result, factor);
    }
    return montgomery_product(result, UTBigInt(1));
}

/// Fermat: a^(m - 2) is the inverse of a modulo a prime m.
UTBigInt UTModulus::inverse(const UTBigInt& a) const {
    UTBigInt exponent = _modulus.value;
    exponent.subtract(UTBigInt(2));
    return power(a, exponent, _bits);
}

/// A base from 0 to the modulus minus 1: as many bytes of digests as fit, reduced.
UTBigInt UTModulus::prime_test_base(unsigned round) const {
    a_byte modulus[UTBigInt::max_bits / 8], stream[UTBigInt::max_bits / 8], counter[8];
    _modulus.value.get_bytes(modulus, bytes());
    const std::size_t wanted = std::min(bytes() + 4, sizeof stream);
    for (std::size_t at = 0; at < wanted; at += UTSHA256::digest_size) {
        UTSHA256 digest;
        ut_store_be32(counter, round);
        ut_store_be32(counter + 4, static_cast<uint32>(at));
        digest.add(counter, sizeof counter);
        digest.add(modulus, bytes());
        a_byte piece[UTSHA256::digest_size];
        digest.end(piece);
        std::copy_n(piece, std::min(sizeof piece, wanted - at), stream + at);
    }
    UTBigInt base;
    base.set_bytes(stream, wanted);
    return reduce(base);
}

/// One round of Miller-Rabin with the modulus less 1 being `odd_part` times 2^twos.
a_bool UTModulus::passes(const UTBigInt& base, const UTBigInt& odd_part, unsigned twos) const {
    UTBigInt minus_one = _modulus.value;
    minus_one.subtract(UTBigInt(1));
    UTBigInt power_of_base = power(base, odd_part, odd_part.bits());
    if (power_of_base == UTBigInt(1) || power_of_base == minus_one) return true;
    for (unsigned i = 1; i < twos; ++i) {
        power_of_base = multiply(power_of_base, power_of_base);
        if (power_of_base == minus_one) return true;
    }
    return false;
}

a_bool UTModulus::is_probably_prime(unsigned rounds) const {
    UTBigInt minus_one = _modulus.value;
    minus_one.subtract(UTBigInt(1));
    unsigned twos = 1;
    while (minus_one.bit(twos) == 0) ++twos;
    const UTBigInt odd_part = minus_one.shifted_right(twos);
    for (unsigned round = 0; round < rounds; ++round) {
        const UTBigInt base = prime_test_base(round);
        const bool proves_nothing = base < UTBigInt(2) || base == minus_one;
        if (!proves_nothing && !passes(base, odd_part, twos)) return false;
    }
    return true;
}
