#include "utils/aes/utaes.h"

#include <vector>

#include <gtest/gtest.h>

#include "tests/utils/cryptopeer.h"
#include "utils/aes/aescode.h"
#include "utils/etc/utcpu.h"

namespace {

/// The codes that this processor runs.
std::vector<const a_aes_code*> codes() {
    std::vector<const a_aes_code*> usable = {&ut_aes_plain};
    if (ut_cpu_has_sse2()) usable.push_back(&ut_aes_sse2);
    if (ut_cpu_has_ssse3()) usable.push_back(&ut_aes_ssse3);
    if (ut_cpu_has_aes()) usable.push_back(&ut_aes_instructions);
    return usable;
}

/// What becomes of `data` if it comes in two calls, the second from `cut` on; at an odd address,
/// as a caller's buffer may be.
std::string run(decltype(&UTAES::encrypt_cbc) direction, const a_aes_code* code,
                const std::string& key, std::string iv, std::string data, std::size_t cut = 0) {
    UTAES aes;
    EXPECT_TRUE(aes.set_key(bytes_of(key), key.size(), *code));
    a_byte* const at = bytes_of(data.insert(0, 1, '\0')) + 1;
    EXPECT_TRUE((aes.*direction)(bytes_of(iv), at, cut));
    EXPECT_TRUE((aes.*direction)(bytes_of(iv), at + cut, data.size() - 1 - cut));
    return data.substr(1);
}
constexpr auto encrypt = &UTAES::encrypt_cbc, decrypt = &UTAES::decrypt_cbc;

struct a_known_cipher {
    const char* key;
    const char* iv;
    const char* plaintext;
    const char* ciphertext;
};

const char* const zero_iv = "00000000000000000000000000000000";
const char* const counting_iv = "000102030405060708090a0b0c0d0e0f";
const char* const sp_800_38a_text =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";

// FIPS 197 appendices C.1 and C.3 (one block), SP 800-38A sections F.2.1 and F.2.5 (a chain).
const a_known_cipher known_ciphers[] = {
    {"000102030405060708090a0b0c0d0e0f", zero_iv, "00112233445566778899aabbccddeeff",
     "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f", zero_iv,
     "00112233445566778899aabbccddeeff", "8ea2b7ca516745bfeafc49904b496089"},
    {"2b7e151628aed2a6abf7158809cf4f3c", counting_iv, sp_800_38a_text,
     "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
    {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", counting_iv,
     sp_800_38a_text,
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
};

TEST(AES, gives_the_known_answers_of_its_standards) {
    for (const a_aes_code* code : codes()) {
        for (const auto& [key, iv, plain, cipher] : known_ciphers) {
            const std::string k = from_hex(key), v = from_hex(iv);
            EXPECT_EQ(cipher, to_hex(run(encrypt, code, k, v, from_hex(plain))));
            EXPECT_EQ(plain, to_hex(run(decrypt, code, k, v, from_hex(cipher))));
        }
    }
}

// More blocks than any code takes at a time. The last one depends on all others; openssl gives it.
TEST(AES, chains_a_long_message_wherever_it_is_cut) {
    const std::string data = sample_bytes(std::size_t{16} * 101), iv = from_hex(counting_iv);
    const std::pair<std::size_t, const char*> last_blocks[] = {
        {16, "2e5b46144d11359e4214d86df8c2d049"}, {32, "626b09775cd266033c58609ad3f867d8"}};
    for (const auto& [key_len, last_block] : last_blocks) {
        const std::string key =
            from_hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f")
                .substr(0, key_len);
        for (const a_aes_code* code : codes()) {
            const std::string cipher = run(encrypt, code, key, iv, data);
            ASSERT_EQ(last_block, to_hex(cipher.substr(data.size() - 16)));
            for (std::size_t cut = 0; cut <= data.size(); cut += 16) {
                ASSERT_EQ(cipher, run(encrypt, code, key, iv, data, cut)) << cut;
                ASSERT_EQ(data, run(decrypt, code, key, iv, cipher, cut)) << cut;
            }
        }
    }
}

TEST(AES, refuses_wrong_lengths_and_changes_nothing) {
    const std::string key(33, 'k'), data(17, 'd'), vector(16, 'v');
    UTAES aes;
    std::string text = data, iv = vector;
    EXPECT_FALSE(aes.encrypt_cbc(bytes_of(iv), bytes_of(text), 16)) << "without a key";
    ASSERT_TRUE(aes.set_key(bytes_of(key), 16));
    for (const std::size_t len : {1, 15, 17}) {
        EXPECT_FALSE(aes.encrypt_cbc(bytes_of(iv), bytes_of(text), len)) << len;
        EXPECT_FALSE(aes.decrypt_cbc(bytes_of(iv), bytes_of(text), len)) << len;
    }
    for (const std::size_t key_len : {0, 1, 15, 17, 24, 31, 33}) {
        ASSERT_TRUE(aes.set_key(bytes_of(key), 32));
        EXPECT_FALSE(aes.set_key(bytes_of(key), key_len)) << key_len;
        EXPECT_FALSE(aes.decrypt_cbc(bytes_of(iv), bytes_of(text), 16)) << "the old key is gone";
    }
    EXPECT_FALSE(aes.set_key(nullptr, 16));
    EXPECT_EQ(data, text);
    EXPECT_EQ(vector, iv);
}

}  // namespace
