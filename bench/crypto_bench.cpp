// AES and the digests beside OpenSSL's in the same process: first both with the processor's AES and
// SHA instructions, then both without them. OpenSSL reads which instructions to use when it is
// loaded, from the environment, so the program starts itself again for the second half.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <unistd.h>

#include "bench/paired.h"
#include "utils/aes/aescode.h"
#include "utils/aes/utaes.h"
#include "utils/digest/shacode.h"
#include "utils/digest/utdigest.h"
#include "utils/etc/utcpu.h"

namespace {

constexpr char capabilities[] = "OPENSSL_ia32cap";
// Without AES and carry-less multiplication in the first word, without SHA in the second.
constexpr char without_instructions[] = "~0x200000200000000:~0x20000000";

constexpr std::size_t size = std::size_t{4} << 20;
constexpr int rounds = 11;

std::vector<a_byte> data(size, 'q');
const char* peer_name;  // behind every label

void compare(const std::string& work, const std::function<void()>& ours,
             const std::function<void()>& theirs) {
    const std::string label = work + " / OpenSSL, " + peer_name;
    PairedBenchmark(rounds).run(label.c_str(), 0.33, ours, theirs);
}

void compare_aes(const a_aes_code& code, std::size_t key_len, const EVP_CIPHER* cipher) {
    a_byte key[32] = {1, 2, 3}, iv[UTAES::block_size] = {};
    UTAES aes;
    aes.set_key(key, key_len, code);
    for (const int encrypts : {1, 0}) {
        EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
        if (EVP_CipherInit_ex(context, cipher, nullptr, key, iv, encrypts) != 1) std::abort();
        EVP_CIPHER_CTX_set_padding(context, 0);
        const auto ours = [&] {
            const bool done = encrypts != 0 ? aes.encrypt_cbc(iv, data.data(), size)
                                            : aes.decrypt_cbc(iv, data.data(), size);
            if (!done) std::abort();
        };
        const auto theirs = [&] {
            int len = 0;
            if (EVP_CipherUpdate(context, data.data(), &len, data.data(), size) != 1) std::abort();
        };
        compare("AES-" + std::to_string(8 * key_len) + (encrypts != 0 ? " encrypt" : " decrypt"),
                ours, theirs);
        EVP_CIPHER_CTX_free(context);
    }
}

void compare_digest(const char* name, a_compress_code compress, const EVP_MD* digest) {
    const auto ours = [compress] {
        uint32 state[8] = {};
        compress(state, data.data(), size / 64);
    };
    const auto theirs = [digest] {
        a_byte out[EVP_MAX_MD_SIZE];
        if (EVP_Digest(data.data(), size, out, nullptr, digest, nullptr) != 1) std::abort();
    };
    compare(name, ours, theirs);
}

void compare_all(const a_aes_code& aes, a_compress_code sha1, a_compress_code sha256) {
    compare_aes(aes, 16, EVP_aes_128_cbc());
    compare_aes(aes, 32, EVP_aes_256_cbc());
    compare_digest("SHA-1", sha1, EVP_sha1());
    compare_digest("SHA-256", sha256, EVP_sha256());
}

}  // namespace

int main(int, char** argv) {
    if (std::getenv(capabilities) != nullptr) {
        peer_name = "both without AES and SHA instructions";
        compare_all(ut_cpu_has_ssse3() ? ut_aes_ssse3 : ut_aes_plain, ut_sha1_plain,
                    ut_sha256_plain);
        return 0;
    }
    peer_name = "both on what this processor has";
    const bool has_sha = ut_cpu_has_sha();
    compare_all(ut_cpu_has_aes() ? ut_aes_instructions : ut_aes_ssse3,
                has_sha ? ut_sha1_instructions : ut_sha1_plain,
                has_sha ? ut_sha256_instructions : ut_sha256_plain);
    compare_digest("MD5", a_md5_algorithm::compress, EVP_md5());
    std::fflush(stdout);
    setenv(capabilities, without_instructions, 1);
    execv("/proc/self/exe", argv);
    return 1;
}
