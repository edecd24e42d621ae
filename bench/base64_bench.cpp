// Base64 beside OpenSSL on the same data, in the same run, and beside memcpy, for every kernel of
// this machine. EVP_EncodeBlock breaks no lines while ours breaks them after 76 characters;
// EVP_DecodeBlock takes no line breaks, so broken text is decoded against EVP_DecodeUpdate.

#include "utils/etc/base64.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include "bench/paired.h"
#include "utils/etc/base64_kernel.h"
#include "utils/etc/utmemstream.h"

namespace {

constexpr int data_size = 57 << 12;  // whole lines, 228 KiB
constexpr int rounds = 101;

struct Workload {
    Workload() : data(data_size, '\0'), plain_text(2 * data_size), text(2 * data_size) {
        std::mt19937 random(1);
        for (char& byte : data) byte = static_cast<char>(random());
        plain_text.resize(base64_encode(plain_text.data(), data.data(), data.size(), 0));
        text.resize(base64_encode(text.data(), data.data(), data.size(), 76));
        out.resize(2 * data_size);
    }
    std::string data;
    std::vector<char> plain_text;  // without line breaks
    std::vector<char> text;
    std::vector<char> out;
};

unsigned char* bytes(char* p) {
    return reinterpret_cast<unsigned char*>(p);
}

void require(bool condition) {
    if (!condition) std::abort();
}

void compare(const char* kernel, Workload& work) {
    const PairedBenchmark benchmark(rounds);
    char* const out = work.out.data();

    const auto openssl_encode = [&] {
        EVP_EncodeBlock(bytes(out), bytes(work.data.data()), data_size);
    };
    const auto openssl_decode = [&] {
        const int size = static_cast<int>(work.plain_text.size());
        require(EVP_DecodeBlock(bytes(out), bytes(work.plain_text.data()), size) >= data_size);
    };
    const auto openssl_decode_lines = [&] {
        int written = 0;
        EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
        EVP_DecodeInit(context);
        const int size = static_cast<int>(work.text.size());
        EVP_DecodeUpdate(context, bytes(out), &written, bytes(work.text.data()), size);
        EVP_ENCODE_CTX_free(context);
        require(written == data_size);
    };
    const auto copy = [&] { std::memcpy(out, work.data.data(), data_size); };

    const auto stream_encode = [&] {
        UTBufOStream dest(out, work.out.size());
        require(base64_encode(dest, UTBufIStream(work.data.data(), data_size), 76, true));
        require(dest.Length() == work.text.size());
    };
    const auto buffer_encode = [&] {
        require(base64_encode(out, work.data.data(), data_size, 76) == work.text.size());
    };
    const auto buffer_decode = [&] {
        const std::vector<char>& text = work.plain_text;
        require(base64_decode(out, text.data(), text.size()) == data_size);
    };
    const auto buffer_decode_lines = [&] {
        require(base64_decode(out, work.text.data(), work.text.size()) == data_size);
    };
    const auto stream_decode_lines = [&] {
        unsigned int total = 0;
        const UTBufOStream dest(out, work.out.size());
        base64_decode(dest, UTBufIStream(work.text.data(), work.text.size()), &total);
        require(total == data_size);
    };

    const auto run = [&](const char* what, double least, auto subject, auto peer) {
        benchmark.run((kernel + std::string(": ") + what).c_str(), least, subject, peer);
    };
    run("stream encode, lines / EVP_EncodeBlock", 1, stream_encode, openssl_encode);
    run("buffer encode, lines / EVP_EncodeBlock", 1, buffer_encode, openssl_encode);
    run("stream encode, lines / memcpy", 0, stream_encode, copy);
    run("buffer decode / EVP_DecodeBlock", 1, buffer_decode, openssl_decode);
    run("buffer decode, lines / EVP_DecodeUpdate", 1, buffer_decode_lines, openssl_decode_lines);
    run("stream decode, lines / EVP_DecodeUpdate", 1, stream_decode_lines, openssl_decode_lines);
    run("buffer decode / memcpy", 0, buffer_decode, copy);
}

}  // namespace

int main() {
    Workload work;
    for (auto kernel = base64_usable_kernels(); *kernel != nullptr; ++kernel) {
        base64_set_kernel(*kernel);
        compare((*kernel)->name, work);
    }
}
