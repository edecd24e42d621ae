#ifndef QUOREL_UTILS_AES_AESPERMUTE_H
#define QUOREL_UTILS_AES_AESPERMUTE_H

/// The tables of AES by vector permutation, after M. Hamburg, "Accelerating AES with Vector Permute
/// Instructions" (CHES 2009): computed by the compiler from the field of FIPS 197 section 4.
///
/// A byte permutation looks 16 values up at once in a register, so no memory address depends on
/// them. To bring the substitution down to tables of 16, a byte x is written over the subfield of
/// 16 elements as x = i * alpha + j * beta and held as the nibbles i and k = i + j. With alpha and
/// beta of norm 1 and a = trace(alpha / beta), the norm of x is D = i^2 + j^2 + a i j, and
///
///     u = 1 / (1/(1/i + a/k) + j) = (k + a i) / D,    t = 1 / (1/(1/j + a/k) + i) = (k + a j) / D,
///
/// of which 1/x is a linear combination. A division by zero gives `infinity`, which survives the
/// addition of an element and is looked up as 0: what these formulas need for each zero among i, j,
/// k and the sums.

#include "utils/etc/uttypes.h"

/// What a register holds, and what a nibble looks up in it.
struct alignas(16) a_aes_vector {
    a_byte byte[16];
};

/// A linear map of bytes, as the images of their low and high nibbles.
struct a_aes_map {
    a_aes_vector low, high;
};

/// A linear map of 1/x, as the images of its parts with u and with t, looked up by 1/u and 1/t.
struct a_aes_inverse_map {
    a_aes_vector u, t;
};

namespace aes_field {

constexpr a_byte infinity = 0x80;

constexpr a_byte multiply(unsigned a, unsigned b) {
    unsigned product = 0;
    for (; b != 0; b >>= 1) {
        if ((b & 1) != 0) product ^= a;
        a = (a << 1) ^ ((a >> 7) * 0x11b);
    }
    return static_cast<a_byte>(product);
}

constexpr a_byte power(a_byte base, unsigned exponent) {
    a_byte result = 1;
    for (; exponent != 0; --exponent) result = multiply(result, base);
    return result;
}

constexpr a_byte inverse(a_byte a) {
    return power(a, 254);
}

// 3 generates the field: its 17th power the subfield, its 15th the elements of norm 1.
constexpr a_byte alpha = power(3, 15);
constexpr a_byte beta = inverse(alpha);  // also the conjugate of alpha
constexpr a_byte a = multiply(alpha, alpha) ^ multiply(beta, beta);

/// The element of the subfield that a nibble stands for; sums of elements are sums of nibbles.
constexpr a_byte element(unsigned nibble) {
    a_byte sum = 0;
    for (unsigned bit = 0; bit < 4; ++bit) {
        if (((nibble >> bit) & 1) != 0) sum ^= power(3, 17 * bit);
    }
    return sum;
}

constexpr a_byte nibble(a_byte subfield_element) {
    for (unsigned n = 0; n < 16; ++n) {
        if (element(n) == subfield_element) return static_cast<a_byte>(n);
    }
    return infinity;
}

/// The byte that holds x: i in its high nibble, k in its low one.
struct a_split {
    a_byte of[256] = {};
    constexpr a_split() {
        for (unsigned i = 0; i < 16; ++i) {
            for (unsigned k = 0; k < 16; ++k) {
                const unsigned x = multiply(element(i), alpha) ^ multiply(element(i ^ k), beta);
                of[x] = static_cast<a_byte>(i << 4 | k);
            }
        }
    }
};
constexpr a_split split;

// The affine step of the substitution (FIPS 197 section 5.1.1) without its constant, and its
// inverse: each bit is the sum of the bits that stand so many places above it, in a circle.
constexpr a_byte affine_constant = 0x63;

constexpr a_byte rotated(a_byte x, unsigned places) {
    return static_cast<a_byte>(x >> places | x << (8 - places));
}
constexpr a_byte affine(a_byte x) {
    return x ^ rotated(x, 4) ^ rotated(x, 5) ^ rotated(x, 6) ^ rotated(x, 7);
}
constexpr a_byte undo_affine(a_byte x) {
    return rotated(x, 2) ^ rotated(x, 5) ^ rotated(x, 7);
}

/// The table of `value` for every nibble.
template <class Value>
constexpr a_aes_vector table(Value value) {
    a_aes_vector result = {};
    for (unsigned n = 0; n < 16; ++n) result.byte[n] = value(static_cast<a_byte>(n));
    return result;
}

template <class Linear>
constexpr a_aes_map map(Linear linear) {
    return {table(linear), table([=](a_byte n) { return linear(static_cast<a_byte>(n << 4)); })};
}

/// 1/x is u times the first of these and t times the second.
constexpr a_byte per_a_squared = inverse(multiply(a, a));
constexpr a_byte u_part = multiply(per_a_squared, alpha ^ beta ^ multiply(a, beta));
constexpr a_byte t_part = multiply(per_a_squared, alpha ^ beta ^ multiply(a, alpha));

template <class Linear>
constexpr a_aes_inverse_map inverse_map(Linear linear) {
    const auto part = [=](a_byte factor) {
        return table([=](a_byte n) { return linear(multiply(factor, inverse(element(n)))); });
    };
    return {part(u_part), part(t_part)};
}

/// From the byte that a block or a round key holds to what one cipher state or the other holds, and
/// what the columns' mixing (FIPS 197 sections 5.1.3 and 5.3.3) needs multiplied on the way.
constexpr a_byte to_cipher(a_byte x) {
    return split.of[x];
}
constexpr a_byte to_inverse_cipher(a_byte x) {
    return split.of[undo_affine(x)];
}
constexpr a_byte as_it_is(a_byte x) {
    return x;
}
template <unsigned Factor>
constexpr a_byte to_cipher_times(a_byte x) {
    return to_cipher(multiply(affine(x), Factor));
}
template <unsigned Factor>
constexpr a_byte to_inverse_cipher_times(a_byte x) {
    return to_inverse_cipher(multiply(x, Factor));
}

/// 1/n for every nibble, and a/n.
constexpr a_aes_vector inverses =
    table([](a_byte n) { return n == 0 ? infinity : nibble(inverse(element(n))); });
constexpr a_aes_vector a_times_inverses =
    table([](a_byte n) { return n == 0 ? infinity : nibble(multiply(a, inverse(element(n)))); });

/// The permutation that shifts the rows of a state, `direction` 1 for the cipher and 3 for its
/// inverse (FIPS 197 sections 5.1.2 and 5.3.1), and then gives each byte the one that lies `below`
/// rows below it in its column.
constexpr a_aes_vector shifted_rows(unsigned direction, unsigned below) {
    a_aes_vector from = {};
    for (unsigned column = 0; column < 4; ++column) {
        for (unsigned row = 0; row < 4; ++row) {
            const unsigned source_row = (row + below) % 4;
            const unsigned source_column = (column + direction * source_row) % 4;
            from.byte[4 * column + row] = static_cast<a_byte>(4 * source_column + source_row);
        }
    }
    return from;
}

/// The same without the shift.
constexpr a_aes_vector rows_below(unsigned below) {
    return shifted_rows(0, below);
}

}  // namespace aes_field

#endif
