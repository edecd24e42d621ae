// Two products of 32 bits at a time, where a register holds no more than 32. Numbers are taken
// apart into digits of 28 bits, one to a 64-bit lane: a lane then holds the sum of all the products
// of its place, and no carry interrupts the adding (S. Gueron and V. Krasnov, "Software
// Implementation of Modular Exponentiation, Using Advanced Vector Instructions Architectures",
// 2012).

#include "utils/dss/utmontgomery.h"

#if !defined(__LP64__)

#include <emmintrin.h>

#include "utils/etc/utcpu.h"

#define DSS_FEATURES "sse2"

namespace {

constexpr unsigned digit_bits = 28;
constexpr uint32 digit_mask = (uint32{1} << digit_bits) - 1;
constexpr std::size_t lanes = 2;

/// Digits of a modulus of so many bits, with room for its double, which a product may come near to
/// before the modulus is subtracted.
constexpr unsigned digits_for(unsigned modulus_bits) {
    return (modulus_bits + 1 + digit_bits - 1) / digit_bits;
}

constexpr std::size_t whole_vectors(std::size_t digits) {
    return (digits + lanes - 1) / lanes * lanes;
}

constexpr std::size_t max_digits = whole_vectors(digits_for(UTBigInt::max_bits));

// A lane takes in two products for each digit of a factor, and a carry.
static_assert(2 * max_digits + 1 < std::size_t{1} << (64 - 2 * digit_bits));

unsigned r_bits(unsigned modulus_bits) {
    return digits_for(modulus_bits) * digit_bits;
}

struct alignas(16) a_digits {
    a_digits(const UTBigInt& number, std::size_t count) {
        for (std::size_t i = 0; i < whole_vectors(count); ++i) digit[i] = digit_of(number, i);
    }
    a_digits(const a_digits&) = delete;
    a_digits& operator=(const a_digits&) = delete;
    ~a_digits() { ut_wipe(digit, sizeof digit); }

    static uint32 digit_of(const UTBigInt& number, std::size_t place) {
        const std::size_t limb = place * digit_bits / limb_bits;
        if (limb >= UTBigInt::max_limbs) return 0;
        uint64 two_limbs = number.limb[limb];
        if (limb + 1 < UTBigInt::max_limbs) {
            two_limbs |= static_cast<uint64>(number.limb[limb + 1]) << limb_bits;
        }
        return static_cast<uint32>(two_limbs >> (place * digit_bits % limb_bits)) & digit_mask;
    }

    uint64 digit[max_digits];
};

/// The sums of a product, from the one of its lowest place on.
struct alignas(16) a_sums {
    a_sums() = default;
    a_sums(const a_sums&) = delete;
    a_sums& operator=(const a_sums&) = delete;
    ~a_sums() { ut_wipe(sum, sizeof sum); }

    uint64 sum[2 * max_digits] = {};
};

/// sums += a * a_factor + m * m_factor.
UT_INLINE_CODE_FOR(DSS_FEATURES)
void add_products(uint64* sums, const a_digits& a, uint32 a_factor, const a_digits& m,
                  uint32 m_factor, std::size_t count) {
    const __m128i by_a = _mm_set1_epi64x(a_factor), by_m = _mm_set1_epi64x(m_factor);
    for (std::size_t i = 0; i < count; i += lanes) {
        const auto at = reinterpret_cast<__m128i*>(sums + i);
        const __m128i of_a = *reinterpret_cast<const __m128i*>(a.digit + i);
        const __m128i of_m = *reinterpret_cast<const __m128i*>(m.digit + i);
        const __m128i products =
            _mm_add_epi64(_mm_mul_epu32(of_a, by_a), _mm_mul_epu32(of_m, by_m));
        _mm_storeu_si128(at, _mm_add_epi64(_mm_loadu_si128(at), products));
    }
}

/// The number with these sums as digits, less the modulus where it is not less than it. It is less
/// than twice the modulus.
UTBigInt number_of(const uint64* sums, std::size_t count, const a_montgomery_modulus& modulus) {
    a_limb limbs[UTBigInt::max_limbs + 1] = {};
    uint64 carry = 0;
    for (std::size_t i = 0; i < count; ++i) {
        carry += sums[i];
        const std::size_t at = i * digit_bits / limb_bits;
        const unsigned shift = i * digit_bits % limb_bits;
        const uint64 placed = (carry & digit_mask) << shift;
        carry >>= digit_bits;
        limbs[at] |= static_cast<a_limb>(placed);
        if (at < UTBigInt::max_limbs) limbs[at + 1] |= static_cast<a_limb>(placed >> limb_bits);
    }
    ut_subtract_once(limbs, limbs[modulus.limbs], modulus.value.limb, modulus.limbs);
    UTBigInt number;
    for (std::size_t i = 0; i < modulus.limbs; ++i) number.limb[i] = limbs[i];
    ut_wipe(limbs, sizeof limbs);
    return number;
}

/// As the plain code does it, digit by digit of b.
UT_CODE_FOR(DSS_FEATURES)
UTBigInt multiply(const a_montgomery_modulus& modulus, const UTBigInt& a, const UTBigInt& b) {
    const std::size_t count = digits_for(modulus.value.bits());
    const a_digits of_a(a, count), of_b(b, count), of_m(modulus.value, count);
    a_sums sums;
    for (std::size_t i = 0; i < count; ++i) {
        uint64* const sum = sums.sum + i;
        const uint32 factor = static_cast<uint32>(of_b.digit[i]);
        const uint64 lowest = sum[0] + of_a.digit[0] * factor;
        const uint32 multiple = static_cast<uint32>(lowest) * modulus.negative_inverse & digit_mask;
        add_products(sum, of_a, factor, of_m, multiple, count);
        sum[1] += sum[0] >> digit_bits;
    }
    return number_of(sums.sum + count, count, modulus);
}

}  // namespace

const a_montgomery_code ut_montgomery_sse2 = {r_bits, multiply};

#endif
