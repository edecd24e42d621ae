#include "utils/digest/utdigest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/utils/cryptopeer.h"
#include "utils/digest/shacode.h"
#include "utils/digest/utcrc32.h"
#include "utils/digest/uthmac.h"
#include "utils/digest/utpbkdf2.h"
#include "utils/etc/utcpu.h"

namespace {

template <class Digest>
std::string finish(Digest& digest, std::size_t size = Digest::digest_size) {
    std::string out(size, '\0');
    digest.end(bytes_of(out));
    return to_hex(out);
}

template <class Digest>
std::string digest_of(std::string_view message) {
    Digest digest;
    digest.add(message.data(), message.size());
    return finish(digest);
}
constexpr auto md5 = digest_of<UTMD5>, sha1 = digest_of<UTSHA1>, sha256 = digest_of<UTSHA256>;

std::string crc32(std::string_view message) {
    UTCRC32 crc;
    crc.add(message.data(), message.size());
    char text[9];
    std::snprintf(text, sizeof text, "%08x", crc.value());
    return text;
}

std::string hmac_sha256(const std::string& key, const std::string& message) {
    UTHMAC<UTSHA256> mac(key.data(), key.size());
    mac.add(message.data(), message.size());
    return finish(mac, UTSHA256::digest_size);
}

std::string pbkdf2(const std::string& password, const std::string& salt, uint32 iterations,
                   std::size_t len) {
    std::string out(len, '\0');
    ut_pbkdf2_hmac_sha256(password.data(), password.size(), salt.data(), salt.size(), iterations,
                          bytes_of(out), len);
    return to_hex(out);
}

// RFC 1321, FIPS 180-4, RFC 4231 (a short key and one longer than a block), RFC 7914.
TEST(Digest, gives_the_known_answers_of_its_standards) {
    const std::string million_a(1000000, 'a');
    const std::string hashed = "Test Using Larger Than Block-Size Key - Hash Key First";
    const std::pair<const char*, std::string> cases[] = {
        {"f96b697d7cb7938d525a2f31aaf161d0", md5("message digest")},
        {"a9993e364706816aba3e25717850c26c9cd0d89d", sha1("abc")},
        {"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", sha256("abc")},
        {"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", sha256(million_a)},
        {"00000000", crc32("")},
        {"5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
         hmac_sha256("Jefe", "what do ya want for nothing?")},
        {"60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
         hmac_sha256(std::string(131, '\xaa'), hashed)},
        {"55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
         "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783",
         pbkdf2("passwd", "salt", 1, 64)},
        {"348c89dbcbd32b2f32d814b8116e84cf2b17347ebc1800181c4e2a1fb8dd53e1c635518c7dac47e9",
         pbkdf2("passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, 40)},
    };
    for (const auto& [answer, given] : cases) EXPECT_EQ(answer, given);
    EXPECT_EQ(pbkdf2("", "", 1, 32).substr(0, 32), pbkdf2("", "", 0, 16));
}

template <class Digest>
void expect_for_any_length_and_cut(const char* digest_of_digests) {
    const std::string message = sample_bytes(200);
    Digest digest, all;
    for (std::size_t len = 0; len < message.size(); ++len) {
        const std::string whole = digest_of<Digest>(message.substr(0, len));
        all.add(from_hex(whole).data(), Digest::digest_size);
        for (std::size_t cut = len % 3; cut <= len; cut += 3) {
            digest.add(message.data(), cut);
            digest.add(nullptr, 0);
            digest.add(message.data() + cut, len - cut);
            ASSERT_EQ(whole, finish(digest)) << len << " bytes cut at " << cut;
        }
    }
    EXPECT_EQ(digest_of_digests, finish(all));
}

// The padding is another one for each length. Openssl gives the digests of all digests.
TEST(Digest, knows_every_length_and_does_not_depend_on_where_the_message_is_cut) {
    expect_for_any_length_and_cut<UTMD5>("ae04544ff84793b0d135abf0525f8774");
    expect_for_any_length_and_cut<UTSHA1>("8b12ee1d73de5287db7fc3d864d1c732ac699e94");
    expect_for_any_length_and_cut<UTSHA256>(
        "615d67a99b8c846e1f0582dfe127019e93c33a66e89ced6a4f81f932c82ece87");
    UTCRC32 crc;
    for (const char digit : std::string("123456789")) crc.add(&digit, 1);
    EXPECT_EQ(0xcbf43926u, crc.value());
    UTSHA256 digest;
    digest.add("abandoned", 9);
    digest.begin();
    EXPECT_EQ(sha256(""), finish(digest)) << "begin() drops what was added";
}

TEST(Digest, both_codes_of_sha_agree) {
    const struct {
        a_compress_code plain, instructions;
        std::size_t words;
    } codes[] = {{ut_sha1_plain, ut_sha1_instructions, 5},
                 {ut_sha256_plain, ut_sha256_instructions, 8}};
    for (unsigned round = 0; round < 510 && ut_cpu_has_sha(); ++round) {
        const auto& code = codes[round % 2];
        const std::size_t blocks = round / 2 % 6;
        const std::string message = sample_bytes(1 + 64 * blocks, round);  // from an odd address
        uint32 states[2][8] = {};
        std::memcpy(states[0], sample_bytes(32, ~round).data(), 4 * code.words);
        std::memcpy(states[1], states[0], sizeof states[0]);
        code.plain(states[0], bytes_of(message) + 1, blocks);
        code.instructions(states[1], bytes_of(message) + 1, blocks);
        ASSERT_TRUE(std::ranges::equal(states[0], states[1])) << blocks;
    }
}

}  // namespace
