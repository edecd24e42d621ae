#include "utils/digest/utdigest.h"

#include <algorithm>
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

template <class Digest>
std::string hmac(const std::string& key, const std::string& message) {
    UTHMAC<Digest> mac(key.data(), key.size());
    mac.add(message.data(), message.size());
    return finish(mac, Digest::digest_size);
}

std::string pbkdf2(const std::string& password, const std::string& salt, uint32 iterations,
                   std::size_t len) {
    std::string out(len, '\0');
    ut_pbkdf2_hmac_sha256(password.data(), password.size(), salt.data(), salt.size(), iterations,
                          bytes_of(out), len);
    return to_hex(out);
}

const std::string two_blocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string million_a(1000000, 'a');

TEST(Digest, gives_the_known_answers_of_its_standard) {
    const struct {
        std::string (*digest)(std::string_view);
        std::string message;
        const char* answer;
    } cases[] = {
        {md5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {md5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {sha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {sha1, two_blocks, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {sha1, million_a, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {sha256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {sha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {sha256, two_blocks, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {sha256, million_a, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
        {crc32, "", "00000000"},
        {crc32, "123456789", "cbf43926"},
        {crc32, "The quick brown fox jumps over the lazy dog", "414fa339"},
    };
    for (const auto& known : cases) {
        EXPECT_EQ(known.answer, known.digest(known.message)) << known.message.substr(0, 60);
    }
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

/// What runs without the processor's instructions.
TEST(Digest, the_plain_code_of_sha_gives_the_known_answer) {
    const std::string padded_abc = "abc\x80" + std::string(59, '\0') + "\x18";
    uint32 sha1_state[5], sha256_state[8];
    std::ranges::copy(a_sha1_algorithm::initial_state, sha1_state);
    std::ranges::copy(a_sha256_algorithm::initial_state, sha256_state);
    ut_sha1_plain(sha1_state, bytes_of(padded_abc), 1);
    ut_sha256_plain(sha256_state, bytes_of(padded_abc), 1);
    EXPECT_EQ(0xa9993e36u, sha1_state[0]);
    EXPECT_EQ(0x9cd0d89du, sha1_state[4]);
    EXPECT_EQ(0xba7816bfu, sha256_state[0]);
    EXPECT_EQ(0xf20015adu, sha256_state[7]);
}

TEST(HMAC, gives_the_known_answers_of_rfc_4231_and_rfc_2202) {
    const std::string twenty_0b(20, '\x0b'), long_key(131, '\xaa'), long_key_1(80, '\xaa');
    EXPECT_EQ("b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
              hmac<UTSHA256>(twenty_0b, "Hi There"));
    EXPECT_EQ("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
              hmac<UTSHA256>("Jefe", "what do ya want for nothing?"));
    EXPECT_EQ("60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
              hmac<UTSHA256>(long_key, "Test Using Larger Than Block-Size Key - Hash Key First"));
    EXPECT_EQ("b617318655057264e28bc0b6fb378c8ef146be00", hmac<UTSHA1>(twenty_0b, "Hi There"));
    EXPECT_EQ("aa4ae5e15272d00e95705637ce8a3b55ed402112",
              hmac<UTSHA1>(long_key_1, "Test Using Larger Than Block-Size Key - Hash Key First"));
}

TEST(PBKDF2, gives_the_known_answers_of_rfc_7914_and_cuts_the_last_block) {
    EXPECT_EQ("55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
              "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783",
              pbkdf2("passwd", "salt", 1, 64));
    EXPECT_EQ("348c89dbcbd32b2f32d814b8116e84cf2b17347ebc1800181c4e2a1fb8dd53e1c635518c7dac47e9",
              pbkdf2("passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, 40));
    EXPECT_EQ(pbkdf2("", "", 1, 32).substr(0, 32), pbkdf2("", "", 0, 16));
}

}  // namespace
