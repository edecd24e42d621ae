#include "utils/etc/base64.h"

#include <sstream>

#include <gtest/gtest.h>

#include "tests/utils/etc/plainbase64.h"
#include "tests/utils/etc/test_streams.h"
#include "utils/etc/base64_kernel.h"

namespace {

// Decodes up to the end or a malformed group; false for malformed text.
bool model_decode(UTOStream& dest, UTIStream& src, unsigned* total) {
    uint32 bits = 0;
    size_t count = 0, padding = 0;
    a_byte c = 0;
    for (*total = 0; src.get(c) == 1;) {
        if (c == '\r' || c == '\n') continue;
        const bool padded = c == '=' && count >= 2;
        const size_t value =
            padded ? 0 : std::string_view(base64_alphabet).find(static_cast<char>(c));
        if (value == std::string_view::npos || (padding != 0 && !padded)) bits |= 1u << 31;
        padding += padded;
        bits = (bits & 1u << 31) | (bits << 6 & 0xFFFFFF) | static_cast<uint32>(value & 63);
        if (++count < 4) continue;
        if (bits >> 31 != 0) return false;
        const a_byte out[] = {a_byte(bits >> 16), a_byte(bits >> 8), a_byte(bits)};
        dest.put(out, 3 - padding);
        *total += static_cast<unsigned>(3 - padding);
        bits = 0, count = 0, padding = 0;
    }
    return count == 0;
}

std::string random_text(Random& random) {
    std::string text =
        plain_base64(random_bytes(random, up_to(random, 300)), 4 * up_to(random, 20));
    for (size_t faults = up_to(random, 3); faults != 0 && !text.empty(); --faults) {
        const char* pieces[] = {"\r\n", "\n", "=", "==", "QQ==", "!", "\x80", "A", "\r", ""};
        text.insert(up_to(random, text.size()), pieces[up_to(random, 9)]);
    }
    return text;
}

// All that can be seen of what `work` does to a source and a destination made from `seed`.
template <class Work>
std::string traces(unsigned seed, const std::string& data, Work work) {
    Random random(seed);
    std::ostringstream seen;
    std::string block(500, '~');
    InputStack in(random, data);
    if (in.whole_reads) in.top().skip(up_to(random, 5));
    {
        OutputStack out(random, block.data(), up_to(random, 400));
        seen << work(out.top(), in.top()) << ' ';
        seen << bool(in.top().eof()) << bool(out.top().eof());
    }
    TestOStream rest;
    in.top().append_to(rest, 1000);
    seen << rest.written << '|' << block;
    return seen.str();
}

class Base64 : public testing::TestWithParam<const a_base64_kernel*> {
  protected:
    void SetUp() override { base64_set_kernel(GetParam()); }
    void TearDown() override { base64_set_kernel(nullptr); }
};

std::vector<const a_base64_kernel*> usable_kernels() {
    auto first = base64_usable_kernels(), end = first;
    while (*end != nullptr) ++end;
    return {first, end};
}
INSTANTIATE_TEST_SUITE_P(Kernels, Base64, testing::ValuesIn(usable_kernels()),
                         [](const auto& suite) { return std::string(suite.param->name); });

TEST_P(Base64, does_with_streams_what_the_model_does) {
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, up_to(random, 400));
        const auto length = static_cast<uint16>(4 * up_to(random, 20));
        const bool breaks = up_to(random, 3) != 0;
        const size_t used_length = !breaks ? 0 : length == 0 || length > 76 ? 76 : length;
        const auto encode = [&](auto& out, auto& in) {
            return bool(base64_encode(out, in, length, breaks));
        };
        const auto model = [&](auto& out, auto& in) {
            std::string bytes;  // up to the first read that is short
            for (size_t count = 3; count == 3;) {
                char group[3];
                bytes.append(group, count = in.get(group, 3));
            }
            return out.put(plain_base64(bytes, used_length).c_str()), true;
        };
        EXPECT_EQ(traces(seed, data, model), traces(seed, data, encode));
        std::string text = plain_base64(data, used_length), back(data.size(), '~');
        UTBufIStream source(text.data(), text.size());
        UTBufOStream dest(back.data(), back.size());
        unsigned total = 0;
        EXPECT_TRUE(base64_decode(dest, source, &total));
        EXPECT_EQ(data, back.substr(0, total));
    }
}

// Buffers of the exact size on the heap, so that the address sanitizer sees every byte too far.
TEST_P(Base64, works_on_buffers_of_exact_size_at_any_alignment) {
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, seed % 301);
        const size_t line_length = 4 * up_to(random, 40);
        const size_t in_shift = up_to(random, 33), out_shift = up_to(random, 33);
        const std::string expected = plain_base64(data, line_length);

        const auto in = std::make_unique<char[]>(in_shift + data.size());
        const auto out = std::make_unique<char[]>(out_shift + expected.size());
        std::copy(data.begin(), data.end(), in.get() + in_shift);
        base64_encode(out.get() + out_shift, in.get() + in_shift, data.size(), line_length);
        EXPECT_EQ(expected, std::string(out.get() + out_shift, expected.size()));
        ASSERT_EQ(data.size(),
                  base64_decode(in.get() + in_shift, out.get() + out_shift, expected.size()));
        EXPECT_EQ(data, std::string(in.get() + in_shift, data.size()));
    }
}

void expect_decoded_in_place(std::string text) {
    UTBufIStream src(text.data(), text.size());
    TestOStream dest;
    unsigned total = 0;
    const bool valid = model_decode(dest, src, &total);
    const size_t result = base64_decode(text.data(), text.data(), text.size());
    EXPECT_EQ(result, valid ? total : ~size_t{0});
    EXPECT_EQ(dest.written, text.substr(0, dest.written.size()));
}

TEST_P(Base64, decodes_buffers_in_place_as_if_character_by_character) {
    Random random(1);
    for (int i = 0; i < 4000 && !HasFailure(); ++i) expect_decoded_in_place(random_text(random));
    // Every byte value at every place of a vector and beyond it.
    for (size_t i = 0; i < size_t{44} * 256 && !HasFailure(); ++i)
        expect_decoded_in_place(std::string(44, 'A').replace(i / 256, 1, 1, static_cast<char>(i)));
}

TEST_P(Base64, finds_every_bad_letter_at_every_place_of_up_to_two_hundred_bytes) {
    const std::string_view good(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/\r\n");
    std::string bad;
    for (int c = 0; c < 256; ++c)
        if (good.find(static_cast<char>(c)) == good.npos) bad += static_cast<char>(c);
    Random random(1);
    for (size_t length = 1; length <= 200; ++length) {
        const std::string encoded = plain_base64(random_bytes(random, length), 0);
        // Of the exact size, for the address sanitizer.
        std::vector<char> text(encoded.begin(), encoded.end()), out(length);
        for (size_t at = 0; at < text.size(); ++at) {
            for (const char c : bad) {
                text[at] = c;
                // A group with padding may be followed by more.
                const bool pads = c == '=' && (at % 4 == 3 || (at % 4 == 2 && text[at + 1] == '='));
                const size_t count = base64_decode(out.data(), text.data(), text.size());
                UTBufIStream source(text.data(), text.size());
                UTBufOStream dest(out.data(), out.size());
                if ((count != ~size_t{0}) != pads || base64_decode(dest, source, nullptr) != pads)
                    FAIL() << int{c} << " at " << at << " in " << encoded;
            }
            text[at] = encoded[at];
        }
    }
}

TEST(Base64Tables, hold) {
    char out[64];
    const auto encoded = [&out](const std::string& data, size_t line_length) {
        return std::string(out, base64_encode(out, data.data(), data.size(), line_length));
    };
    EXPECT_EQ("Zm9v\r\nYmFy\r\n", encoded("foobar", 4));
    EXPECT_EQ(~size_t{0}, base64_encode(out, "", 0, 10));
    EXPECT_EQ("AAB", std::string(out, base64_decode(out, "Q\rQ=\n=QUI=", 10)));
    for (const char* malformed : {"QQ=A", "Q", "QUJ", "=QQQ", "Q=QQ", "QU D", "Q\x80=="})
        EXPECT_EQ(~size_t{0}, base64_decode(out, malformed, strlen(malformed))) << malformed;
}

}  // namespace
