#include "utils/dss/utdsa.h"

#include <algorithm>

#include "utils/digest/uthmac.h"

namespace {

constexpr std::size_t max_q_bytes = UTDSA::max_signature_size / 2;

/// Rounds for p as well as q, by the bits of p: the least that FIPS 186-4 table C.1 allows without
/// a Lucas test, for a chance of error of 2^-80 and 2^-112.
constexpr unsigned prime_test_rounds(unsigned p_bits) {
    return p_bits == 1024 ? 40 : 56;
}

/// True for 1 < element < p with an order that divides q, which is prime: the order is q then.
bool is_in_subgroup(const UTModulus& p, const UTModulus& q, const UTBigInt& element) {
    return UTBigInt(1) < element && element < p.value() &&
           p.power(element, q.value(), q.bits()) == UTBigInt(1);
}

/// The nonces of RFC 6979 section 3.2, from the private key and the digest.
class NonceGenerator {
  public:
    NonceGenerator(const UTModulus& q, const UTBigInt& x, const UTBigInt& z) : _q(q) {
        std::fill_n(_v.data, _v.size, a_byte{0x01});
        std::fill_n(_key.data, _key.size, a_byte{0x00});
        a_wiped_bytes<2 * max_q_bytes> seed;
        x.get_bytes(seed.data, q.bytes());
        z.get_bytes(seed.data + q.bytes(), q.bytes());
        rekey(0x00, seed.data, 2 * q.bytes());
        rekey(0x01, seed.data, 2 * q.bytes());
    }

    /// The next nonce, from 1 to q - 1.
    UTBigInt next() {
        for (;;) {
            const UTBigInt nonce = next_number();
            rekey(0x00, nullptr, 0);
            if (!nonce.is_zero() && nonce < _q.value()) return nonce;
        }
    }

  private:
    using a_mac = UTHMAC<UTSHA1>;

    void rekey(a_byte step, const a_byte* seed, std::size_t seed_len) {
        a_mac mac(_key.data, _key.size);
        mac.add(_v.data, _v.size);
        mac.add(&step, 1);
        mac.add(seed, seed_len);
        mac.end(_key.data);
        step_v();
    }

    void step_v() {
        a_mac mac(_key.data, _key.size);
        mac.add(_v.data, _v.size);
        mac.end(_v.data);
    }

    /// As many bits as q has; both sizes of q are whole bytes.
    UTBigInt next_number() {
        a_wiped_bytes<max_q_bytes + a_mac::mac_size> stream;
        for (std::size_t len = 0; len < _q.bytes(); len += _v.size) {
            step_v();
            std::copy_n(_v.data, _v.size, stream.data + len);
        }
        UTBigInt number;
        number.set_bytes(stream.data, _q.bytes());
        return number;
    }

    const UTModulus& _q;
    a_wiped_bytes<a_mac::mac_size> _key, _v;
};

/// The digest as a number modulo q. It is never longer than q, so all of it counts.
UTBigInt digest_number(const UTModulus& q, const a_byte* digest) {
    UTBigInt number;
    number.set_bytes(digest, UTDSA::digest_size);
    return q.reduce(number);
}

}  // namespace

a_bool UTDSA::set_domain(const UTBigInt& p, const UTBigInt& q, const UTBigInt& g) {
    _has_domain = _has_public_key = _has_private_key = false;
    const unsigned p_bits = p.bits(), q_bits = q.bits();
    const bool sizes_fit = (p_bits == 1024 && q_bits == 160) || (p_bits == 2048 && q_bits == 256);
    if (!sizes_fit || p.bit(0) == 0 || q.bit(0) == 0) return false;
    _p = UTModulus(p);
    _q = UTModulus(q);
    _g = g;
    UTBigInt p_minus_one = p;
    p_minus_one.subtract(UTBigInt(1));
    const unsigned rounds = prime_test_rounds(p_bits);
    // The cheapest first: a test of p for being prime takes longer than all the others.
    _has_domain = _q.reduce(p_minus_one).is_zero() && is_in_subgroup(_p, _q, g) &&
                  _q.is_probably_prime(rounds) && _p.is_probably_prime(rounds);
    return _has_domain;
}

a_bool UTDSA::set_public_key(const UTBigInt& y) {
    if (!_has_domain || !is_in_subgroup(_p, _q, y)) return false;
    _y = y;
    _has_public_key = true;
    _has_private_key = false;
    return true;
}

a_bool UTDSA::set_private_key(const UTBigInt& x) {
    if (!_has_domain || x.is_zero() || !(x < _q.value())) return false;
    const UTBigInt y = _p.power(_g, x, _q.bits());
    // A pair that does not fit would sign what nobody can verify.
    if (_has_public_key && !(y == _y)) return false;
    _y = y;
    _x = x;
    _has_public_key = _has_private_key = true;
    return true;
}

a_bool UTDSA::sign(const a_byte* digest, a_byte* signature) const {
    if (!_has_private_key) return false;
    const UTBigInt z = digest_number(_q, digest);
    NonceGenerator nonces(_q, _x, z);
    UTBigInt r, s;
    // A nonce that gives a zero would show the key or nothing; FIPS 186-4 section 4.6 takes
    // another.
    while (r.is_zero() || s.is_zero()) {
        const UTBigInt k = nonces.next();
        r = _q.reduce(_p.power(_g, k, _q.bits()));
        s = _q.multiply(_q.inverse(k), _q.add(z, _q.multiply(_x, r)));
    }
    r.get_bytes(signature, _q.bytes());
    s.get_bytes(signature + _q.bytes(), _q.bytes());
    return true;
}

a_bool UTDSA::verify(const a_byte* digest, const a_byte* signature) const {
    if (!_has_public_key) return false;
    UTBigInt r, s;
    r.set_bytes(signature, _q.bytes());
    s.set_bytes(signature + _q.bytes(), _q.bytes());
    // FIPS 186-4, section 4.7: what is out of range is no signature, whatever it would verify.
    if (r.is_zero() || s.is_zero() || !(r < _q.value()) || !(s < _q.value())) return false;
    const UTBigInt w = _q.inverse(s);
    const UTBigInt u1 = _q.multiply(digest_number(_q, digest), w);
    const UTBigInt u2 = _q.multiply(r, w);
    const UTBigInt v = _p.multiply(_p.power(_g, u1, _q.bits()), _p.power(_y, u2, _q.bits()));
    return _q.reduce(v) == r;
}
