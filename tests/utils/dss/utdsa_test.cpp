#include "utils/dss/utdsa.h"

#include <gtest/gtest.h>

#include "tests/utils/dss/dsakeys.h"
#include "utils/digest/utdigest.h"

namespace {

std::string sha1(std::string_view message) {
    UTSHA1 digest;
    digest.add(message.data(), message.size());
    std::string out(UTSHA1::digest_size, '\0');
    digest.end(bytes_of(out));
    return out;
}

/// A key pair of which the checks are known to succeed.
class KeyPair : public UTDSA {
  public:
    explicit KeyPair(const a_dsa_key& key) {
        EXPECT_TRUE(set_domain(number(key.p), number(key.q), number(key.g)));
        EXPECT_TRUE(set_public_key(number(key.y)));
        EXPECT_TRUE(set_private_key(number(key.x)));
    }
    std::string sign_message(std::string_view message) const {
        std::string signature(signature_size(), '\0');
        EXPECT_TRUE(sign(bytes_of(sha1(message)), bytes_of(signature)));
        return signature;
    }
    bool verify_message(std::string_view message, const std::string& signature) const {
        return verify(bytes_of(sha1(message)), bytes_of(signature));
    }
};

TEST(DSA, gives_the_known_answer_of_rfc_6979) {
    const KeyPair key(dsa_key_1024);
    EXPECT_EQ("2e1a0c2562b2912caaf89186fb0f42001585da5529efb6b0aff2d7a68eb70ca313022253b9a88df5",
              to_hex(key.sign_message("sample")));
}

TEST(DSA, refuses_every_other_signature) {
    const KeyPair key(dsa_key_1024);
    const std::string signature = key.sign_message("sample");
    EXPECT_TRUE(key.verify_message("sample", signature));
    EXPECT_FALSE(key.verify_message("samplf", signature));
    for (std::size_t byte = 0; byte < signature.size(); ++byte) {
        std::string changed = signature;
        changed[byte] = static_cast<char>(changed[byte] ^ (1 << byte % 8));
        EXPECT_FALSE(key.verify_message("sample", changed)) << byte;
    }
    const std::string r = signature.substr(0, 20), s = signature.substr(20);
    const std::string zero(20, '\0'), q = from_hex(dsa_key_1024.q);
    for (const std::string& wrong : {zero + s, r + zero, q + s, r + q, s + r})
        EXPECT_FALSE(key.verify_message("sample", wrong)) << to_hex(wrong);
    // The second half of the signature of "test" with q added, which fits in its bytes.
    EXPECT_FALSE(key.verify_message("test", from_hex("42ab2052fd43e123f0607f115052a67dcd9c5c77"
                                                     "b1a8ad2f8f9b7e47313d61f2e71077c52f018939")));
}

struct a_domain {
    const char* why;
    UTBigInt p, q, g;
};
const UTBigInt p = number(dsa_key_1024.p), q = number(dsa_key_1024.q), g = number(dsa_key_1024.g);

TEST(DSA, refuses_wrong_domain_parameters) {
    const a_domain domains[] = {
        {"p too short", p.shifted_right(1), q, g},
        {"q does not divide p - 1", p, minus(q, 2), g},
        {"g is 1", p, q, UTBigInt(1)},
        {"g has some other order", p, q, UTBigInt(2)},
        {"g is not less than p", p, q, p},
        {"p composite", number(dsa_composite_p.p), q, number(dsa_composite_p.g)},
    };
    for (const a_domain& wrong : domains) {
        UTDSA dsa;
        EXPECT_FALSE(dsa.set_domain(wrong.p, wrong.q, wrong.g)) << wrong.why;
        EXPECT_FALSE(dsa.set_private_key(UTBigInt(5))) << wrong.why;
    }
}

TEST(DSA, refuses_wrong_keys_and_keeps_the_right_ones) {
    KeyPair key(dsa_key_1024);
    EXPECT_FALSE(key.set_private_key(UTBigInt(5))) << "belongs to another public key";
    for (const UTBigInt& wrong : {UTBigInt(1), minus(p, 1), p})
        EXPECT_FALSE(key.set_public_key(wrong));
    EXPECT_TRUE(key.verify_message("sample", key.sign_message("sample")));
    EXPECT_TRUE(key.set_domain(p, q, g));
    EXPECT_FALSE(key.can_sign() || key.can_verify()) << "a new domain has no keys";
    EXPECT_FALSE(key.set_private_key(UTBigInt(0)) || key.set_private_key(q));
}

}  // namespace
