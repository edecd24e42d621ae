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

// SP 800-38A sections F.2.1 and F.2.5, and behind their text more blocks than any code takes at a
// time. The last block depends on all others; openssl gives it.
TEST(AES, gives_the_known_answers_of_its_standard_wherever_the_message_is_cut) {
    const struct {
        const char *key, *first_blocks, *last_block;
    } answers[] = {
        {"2b7e151628aed2a6abf7158809cf4f3c",
         "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
         "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7",
         "d42339438aee10d46c02947103fbe8e1"},
        {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
         "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
         "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b",
         "8eae1e412bfc52f9b7970da50034aaf1"},
    };
    const std::string iv = from_hex("000102030405060708090a0b0c0d0e0f");
    const std::string data =
        from_hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                 "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710") +
        sample_bytes(std::size_t{16} * 97);
    for (const auto& [hex_key, first_blocks, last_block] : answers) {
        const std::string key = from_hex(hex_key);
        for (const a_aes_code* code : codes()) {
            const std::string cipher = run(encrypt, code, key, iv, data);
            EXPECT_EQ(first_blocks, to_hex(cipher.substr(0, 64)));
            EXPECT_EQ(last_block, to_hex(cipher.substr(data.size() - 16)));
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
    for (const std::size_t len : {0, 15, 17, 24, 33}) EXPECT_FALSE(aes.set_key(bytes_of(key), len));
    EXPECT_FALSE(aes.decrypt_cbc(bytes_of(iv), bytes_of(text), 16)) << "the old key is gone";
    EXPECT_FALSE(aes.set_key(nullptr, 16));
    EXPECT_EQ(data, text);
    EXPECT_EQ(vector, iv);
}

}  // namespace
