#ifndef QUOREL_UTILS_DSS_UTMODULUS_H
#define QUOREL_UTILS_DSS_UTMODULUS_H

/// Arithmetic modulo an odd integer, by Montgomery's method.
///
/// The modulus is public. Everything else may be secret: the time taken and the memory touched
/// depend on the modulus and on the sizes named in a call alone. Any number of threads may use one
/// object.

#include "utils/dss/utmontgomery.h"

class UTModulus {
  public:
    /// Unusable until assigned from another.
    UTModulus() = default;

    /// `modulus` is odd and greater than 1.
    explicit UTModulus(const UTBigInt& modulus);

    /// The same with a given code, which this processor must be able to run.
    UTModulus(const UTBigInt& modulus, const a_montgomery_code& code);

    const UTBigInt& value() const { return _modulus.value; }
    unsigned bits() const { return _bits; }
    std::size_t bytes() const { return (_bits + 7) / 8; }

    /// Any integer modulo this one.
    UTBigInt reduce(const UTBigInt& number) const;

    // Arguments and results of all that follows are less than the modulus.
    UTBigInt add(const UTBigInt& a, const UTBigInt& b) const;
    UTBigInt multiply(const UTBigInt& a, const UTBigInt& b) const;

    /// `base` raised to the low `exponent_bits` bits of `exponent`.
    UTBigInt power(const UTBigInt& base, const UTBigInt& exponent, unsigned exponent_bits) const;

    /// The inverse of `a`, which is not zero, for a prime modulus greater than 2.
    UTBigInt inverse(const UTBigInt& a) const;

    /// True for every prime modulus greater than 3; true for a composite one with a chance of
    /// 4^-rounds at most (Miller-Rabin, FIPS 186-4 appendix C.3.1). The bases are digests of the
    /// modulus, so that the answer to one question is always the same.
    a_bool is_probably_prime(unsigned rounds) const;

  private:
    UTBigInt montgomery_product(const UTBigInt& a, const UTBigInt& b) const {
        return _code->multiply(_modulus, a, b);
    }
    void double_in_place(UTBigInt& number) const;
    UTBigInt prime_test_base(unsigned round) const;
    a_bool passes(const UTBigInt& base, const UTBigInt& odd_part, unsigned twos) const;

    const a_montgomery_code* _code = nullptr;
    a_montgomery_modulus _modulus;
    unsigned _bits = 0;
    UTBigInt _r;          // the method's R modulo the modulus
    UTBigInt _r_squared;  // its square modulo the modulus
};

#endif
