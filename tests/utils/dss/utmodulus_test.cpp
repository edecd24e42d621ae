#include <vector>

#include <gtest/gtest.h>

#include "tests/utils/dss/dsakeys.h"
#include "utils/etc/utcpu.h"

namespace {

const UTBigInt ones = number(std::string(512, 'f'));

TEST(BigInt, takes_no_more_bytes_than_it_has_room_for) {
    const std::string too_long = '\1' + std::string(256, '\0');
    UTBigInt value(7);
    EXPECT_FALSE(value.set_bytes(bytes_of(too_long), too_long.size()));
    EXPECT_TRUE(value.is_zero());
}

/// The codes that this processor runs.
std::vector<const a_montgomery_code*> codes() {
    std::vector<const a_montgomery_code*> usable = {&ut_montgomery_plain};
#if !defined(__LP64__)
    if (ut_cpu_has_sse2()) usable.push_back(&ut_montgomery_sse2);
#endif
    return usable;
}

/// The largest arguments of the largest moduli make every carry happen.
void carry_through_every_limb(const a_montgomery_code& code) {
    for (const unsigned bits : {33u, 64u, 65u, 160u, 1023u, 1024u, 2016u, 2047u, 2048u}) {
        const UTBigInt all_ones = ones.shifted_right(2048 - bits);
        const UTModulus modulus(all_ones, code);
        const UTBigInt minus_one = minus(all_ones, 1), minus_two = minus(all_ones, 2);
        EXPECT_EQ(UTBigInt(1), modulus.multiply(minus_one, minus_one)) << bits;
        EXPECT_EQ(minus_two, modulus.add(minus_one, minus_one)) << bits;
        EXPECT_EQ(minus_one, modulus.power(minus_one, UTBigInt(3), 2)) << bits;
        EXPECT_EQ(UTBigInt(1), modulus.power(minus_one, UTBigInt(0xf3), 0)) << bits;
        EXPECT_EQ(modulus.multiply(minus_two, minus_two),
                  modulus.power(minus_two, UTBigInt(0xf2), 2))
            << "only two bits count";
        EXPECT_EQ(UTBigInt(0), modulus.reduce(all_ones)) << bits;
        EXPECT_EQ(minus_one, modulus.reduce(minus_one)) << bits;
    }
}

TEST(Modulus, carries_through_every_limb) {
    for (const a_montgomery_code* code : codes()) carry_through_every_limb(*code);
}

TEST(Modulus, tells_primes_from_composites) {
    // Composites that fool Miller-Rabin with all of the first 4, 6 and 7 primes as bases.
    for (const char* composite : {"bfa17dc7", "32907381cdf", "136a352b2c8c1"}) {
        EXPECT_FALSE(UTModulus(number(composite)).is_probably_prime(20)) << composite;
    }
    // 2^521 - 1 is prime, 2^523 - 1 is not.
    EXPECT_TRUE(UTModulus(ones.shifted_right(2048 - 521)).is_probably_prime(5));
    EXPECT_FALSE(UTModulus(ones.shifted_right(2048 - 523)).is_probably_prime(5));
}

}  // namespace
