// The check of DSA domain parameters, which is nearly all that creating a signature handler costs,
// beside the same work on OpenSSL's integers: as many rounds of Miller-Rabin for p and q, and the
// order of g. (OpenSSL's own primality test chooses another number of rounds.)

#include <cstdlib>

#include <openssl/bn.h>
#include <openssl/dsa.h>
#include <openssl/evp.h>

#include "bench/paired.h"
#include "utils/dss/utdsa.h"

namespace {

constexpr int rounds = 5;

EVP_PKEY* make_parameters(int p_bits, int q_bits) {
    EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr);
    EVP_PKEY* parameters = nullptr;
    if (EVP_PKEY_paramgen_init(context) != 1 ||
        EVP_PKEY_CTX_set_dsa_paramgen_bits(context, p_bits) != 1 ||
        EVP_PKEY_CTX_set_dsa_paramgen_q_bits(context, q_bits) != 1 ||
        EVP_PKEY_paramgen(context, &parameters) != 1)
        std::abort();
    EVP_PKEY_CTX_free(context);
    return parameters;
}

struct a_parameter {
    a_parameter(EVP_PKEY* parameters, const char* name) {
        if (EVP_PKEY_get_bn_param(parameters, name, &theirs) != 1) std::abort();
        a_byte bytes[UTBigInt::max_bits / 8];
        ours.set_bytes(bytes, static_cast<std::size_t>(BN_bn2bin(theirs, bytes)));
    }
    ~a_parameter() { BN_free(theirs); }
    a_parameter(const a_parameter&) = delete;
    a_parameter& operator=(const a_parameter&) = delete;

    BIGNUM* theirs = nullptr;
    UTBigInt ours;
};

class PeerTest {
  public:
    PeerTest() : _context(BN_CTX_new()), _power(BN_new()) {}
    ~PeerTest() {
        BN_free(_power);
        BN_CTX_free(_context);
    }
    PeerTest(const PeerTest&) = delete;
    PeerTest& operator=(const PeerTest&) = delete;

    void power(const BIGNUM* base, const BIGNUM* exponent, const BIGNUM* modulus) {
        if (BN_mod_exp_mont(_power, base, exponent, modulus, _context, nullptr) != 1) std::abort();
    }

    void test_prime(const BIGNUM* prime, int rounds_of_test) {
        BIGNUM* const base = BN_new();
        BIGNUM* const odd_part = BN_dup(prime);
        BN_sub_word(odd_part, 1);
        while (!BN_is_odd(odd_part)) BN_rshift1(odd_part, odd_part);
        for (int i = 0; i < rounds_of_test; ++i) {
            if (BN_rand_range(base, prime) != 1) std::abort();
            power(base, odd_part, prime);
        }
        BN_free(base);
        BN_free(odd_part);
    }

  private:
    BN_CTX* _context;
    BIGNUM* _power;
};

void compare(const char* label, int p_bits, int q_bits, int rounds_of_test) {
    EVP_PKEY* const parameters = make_parameters(p_bits, q_bits);
    const a_parameter p(parameters, "p"), q(parameters, "q"), g(parameters, "g");
    EVP_PKEY_free(parameters);
    PeerTest peer;
    const auto ours = [&] {
        UTDSA dsa;
        if (!dsa.set_domain(p.ours, q.ours, g.ours)) std::abort();
    };
    const auto theirs = [&] {
        peer.power(g.theirs, q.theirs, p.theirs);
        peer.test_prime(q.theirs, rounds_of_test);
        peer.test_prime(p.theirs, rounds_of_test);
    };
    PairedBenchmark(rounds).run(label, 0.4, ours, theirs);
}

}  // namespace

int main() {
    compare("DSA 1024/160, parameters checked / OpenSSL, the same rounds", 1024, 160, 40);
    compare("DSA 2048/256, parameters checked / OpenSSL, the same rounds", 2048, 256, 56);
}
