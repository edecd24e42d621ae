#include "utils/etc/base64.h"

#include <gtest/gtest.h>

#include "tests/utils/etc/test_streams.h"
#include "utils/etc/base64_kernel.h"

namespace {

// The rules group by group, as plainly as they can be written: what everything else must agree
// with.
void model_encode(UTOStream& dest, UTIStream& src, size_t line_length) {
    size_t column = 0;
    for (;;) {
        a_byte in[3] = {};
        const size_t count = src.get(in, 3);
        if (count == 0) return;
        const uint32 bits = uint32{in[0]} << 16 | uint32{in[1]} << 8 | in[2];
        char group[4];
        for (int i = 0; i < 4; ++i) group[i] = base64_alphabet[bits >> (18 - 6 * i) & 63];
        for (size_t i = 4; i > count + 1; --i) group[i - 1] = '=';
        dest.put(group, 4);
        column += 4;
        if (column == line_length) {
            dest.put("\r\n");
            column = 0;
        }
        if (count < 3) return;
    }
}

// Decodes one group; 0 for a malformed one.
size_t model_decode_group(a_byte* out, const std::string& group) {
    size_t padding = 0;
    uint32 bits = 0;
    for (size_t i = 0; i < 4; ++i) {
        const size_t value = std::string(base64_alphabet).find(group[i]);
        if (group[i] == '=' && i >= 2) {
            ++padding;
        } else if (value == std::string::npos || padding != 0) {
            return 0;
        }
        bits = bits << 6 | static_cast<uint32>(group[i] == '=' ? 0 : value);
    }
    for (size_t i = 0; i < 3; ++i) out[i] = static_cast<a_byte>(bits >> (16 - 8 * i));
    return 3 - padding;
}

// Decodes up to the end, a malformed group or, if so wanted, a padded one; false for malformed
// text.
bool model_decode(UTOStream& dest, UTIStream& src, bool stop_at_padding, unsigned* total) {
    std::string group;
    a_byte c = 0;
    *total = 0;
    while (src.get(c) == 1) {
        if (c == '\r' || c == '\n') continue;
        group += static_cast<char>(c);
        if (group.size() < 4) continue;
        a_byte out[3];
        const size_t count = model_decode_group(out, group);
        if (count == 0) return false;
        dest.put(out, count);
        *total += static_cast<unsigned>(count);
        if (count < 3 && stop_at_padding) return true;
        group.clear();
    }
    return group.empty();
}

std::string model_text(const std::string& data, size_t line_length) {
    UTBufIStream src(data.data(), data.size());
    TestOStream dest;
    model_encode(dest, src, line_length);
    return dest.written;
}

// Base64 text with line breaks, and now and then something that does not belong.
std::string random_text(Random& random) {
    std::string text = model_text(random_bytes(random, up_to(random, 300)), 4 * up_to(random, 20));
    for (size_t faults = up_to(random, 3); faults != 0 && !text.empty(); --faults) {
        const char* pieces[] = {"\r\n", "\n", "=", "==", "QQ==", "!", "\x80", "A", "\r", ""};
        text.insert(up_to(random, text.size()), pieces[up_to(random, 9)]);
    }
    return text;
}

// A source and a destination made the same way from the same seed, with all that can be seen of
// what was done to them.
struct Twin {
    Twin(unsigned seed, const std::string& data)
        : random(seed), block(500, '~'), in(random, data),
          out(random, block.data(), up_to(random, 400),
              up_to(random, 1) != 0 ? &refusing : nullptr) {
        if (in.whole_reads) in.top().skip(up_to(random, 5));
    }

    // Takes one write in four in part or not at all, and may end.
    size_t accept(TestOStream& self, size_t n) {
        writes.push_back(n);
        if (up_to(random, 99) == 0) self.set_eof();
        return up_to(random, 3) != 0 ? n : up_to(random, 1) != 0 ? ~size_t{0} : n / 2;
    }

    void expect_same_traces(Twin& model) {
        EXPECT_EQ(in.top().eof(), model.in.top().eof());
        EXPECT_EQ(out.top().eof(), model.out.top().eof());
        TestOStream rest, model_rest;
        in.top().append_to(rest, 1000);
        model.in.top().append_to(model_rest, 1000);
        EXPECT_EQ(rest.written, model_rest.written);
        out.clear();
        model.out.clear();
        EXPECT_EQ(writes, model.writes);
        EXPECT_EQ(refusing.written, model.refusing.written);
        EXPECT_EQ(block, model.block);
    }

    Random random;
    std::string block;
    std::vector<size_t> writes;
    TestOStream refusing{[this](TestOStream& self, size_t n) { return accept(self, n); }};
    InputStack in;
    OutputStack out;
};

class Base64 : public testing::TestWithParam<const a_base64_kernel*> {
  protected:
    void SetUp() override { base64_set_kernel(GetParam()); }
    void TearDown() override { base64_set_kernel(nullptr); }
};

std::vector<const a_base64_kernel*> usable_kernels() {
    std::vector<const a_base64_kernel*> kernels;
    for (auto kernel = base64_usable_kernels(); *kernel != nullptr; ++kernel)
        kernels.push_back(*kernel);
    return kernels;
}
INSTANTIATE_TEST_SUITE_P(Kernels, Base64, testing::ValuesIn(usable_kernels()),
                         [](const auto& suite) { return std::string(suite.param->name); });

TEST_P(Base64, encodes_streams_as_if_group_by_group) {
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, up_to(random, 400));
        const auto line_length = static_cast<uint16>(4 * up_to(random, 20));
        const bool breaks = up_to(random, 3) != 0;
        Twin real(seed, data), model(seed, data);
        EXPECT_TRUE(base64_encode(real.out.top(), real.in.top(), line_length, breaks));
        const size_t used_length = line_length == 0 || line_length > 76 ? 76 : line_length;
        model_encode(model.out.top(), model.in.top(), breaks ? used_length : 0);
        real.expect_same_traces(model);
    }
}

TEST_P(Base64, decodes_streams_as_if_character_by_character) {
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string text = random_text(random);
        Twin real(seed, text), model(seed, text);
        unsigned total = 1, model_total = 0;
        const bool valid = model_decode(model.out.top(), model.in.top(), true, &model_total);
        EXPECT_EQ(base64_decode(real.out.top(), real.in.top(), &total), valid);
        EXPECT_EQ(total, model_total);
        real.expect_same_traces(model);
    }
}

// Buffers of the exact size on the heap, so that the address sanitizer sees every byte too far.
TEST_P(Base64, works_on_buffers_of_exact_size_at_any_alignment) {
    for (unsigned seed = 0; seed < 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, up_to(random, 300));
        const size_t line_length = 4 * up_to(random, 40);
        const size_t in_shift = up_to(random, 33), out_shift = up_to(random, 33);
        const std::string expected = model_text(data, line_length);

        const auto in = std::make_unique<char[]>(in_shift + data.size());
        const auto out = std::make_unique<char[]>(out_shift + expected.size());
        std::copy(data.begin(), data.end(), in.get() + in_shift);
        ASSERT_EQ(
            base64_encode(out.get() + out_shift, in.get() + in_shift, data.size(), line_length),
            expected.size());
        EXPECT_EQ(std::string(out.get() + out_shift, expected.size()), expected);
        ASSERT_EQ(base64_decode(in.get() + in_shift, out.get() + out_shift, expected.size()),
                  data.size());
        EXPECT_EQ(std::string(in.get() + in_shift, data.size()), data);
    }
}

// Decodes `text` in place and compares with the model.
void expect_decoded_in_place(std::string text) {
    UTBufIStream src(text.data(), text.size());
    TestOStream dest;
    unsigned total = 0;
    const bool valid = model_decode(dest, src, false, &total);
    const size_t result = base64_decode(text.data(), text.data(), text.size());
    EXPECT_EQ(result, valid ? dest.written.size() : ~size_t{0});
    EXPECT_EQ(text.substr(0, dest.written.size()), dest.written);
}

TEST_P(Base64, decodes_buffers_in_place_as_if_character_by_character) {
    Random random(1);
    for (int i = 0; i < 4000 && !HasFailure(); ++i) expect_decoded_in_place(random_text(random));
}

// Every byte value at every place of a vector and beyond it.
TEST_P(Base64, knows_the_alphabet_at_every_place) {
    for (size_t place = 0; place < 44; ++place)
        for (int c = 0; c < 256 && !HasFailure(); ++c) {
            std::string text(44, 'A');
            text[place] = static_cast<char>(c);
            expect_decoded_in_place(text);
        }
}

TEST(Base64Tables, hold) {
    struct {
        const char* data;
        size_t length;
        size_t line_length;
        const char* text;
    } const encodings[] = {
        {"", 0, 76, ""},
        {"\0u\0p", 4, 512, "AHUAcA=="},
        {"foobar", 6, 4, "Zm9v\r\nYmFy\r\n"},
        {"fooba", 5, 8, "Zm9vYmE=\r\n"},
        {"foob", 4, 0, "Zm9vYg=="},
        {"\xFB\xEF\xFF", 3, 8, "++//"},
    };
    for (const auto& c : encodings) {
        char text[64];
        const size_t length = base64_encode(text, c.data, c.length, c.line_length);
        EXPECT_EQ(std::string(text, length), c.text);
    }
    char out[16];
    for (const size_t line_length : {1, 2, 3, 10})
        for (const size_t length : {0, 3})
            EXPECT_EQ(base64_encode(out, "abc", length, line_length), ~size_t{0});
    UTBufIStream untouched("abc", 3);
    EXPECT_FALSE(base64_encode(UTBufOStream(out, sizeof out), untouched, 78, false));
    EXPECT_EQ(untouched.unread(), 3u);

    const auto decoded = [&out](const char* text) {
        const size_t length = base64_decode(out, text, strlen(text));
        return length == ~size_t{0} ? "malformed" : std::string(out, length);
    };
    const std::pair<const char*, const char*> decodings[] = {
        {"", ""},          {"\r\n", ""},    {"QQ==\r\n", "A"},
        {"Q\rQ=\n=", "A"}, {"QUJD", "ABC"}, {"QQ==QUI=", "AAB"},
    };
    for (const auto& [text, data] : decodings) EXPECT_EQ(decoded(text), data) << text;
    for (const char* text : {"QQ=A", "Q", "QUJDQ", "QUJ", "=QQQ", "Q=QQ", "QQ=", "====", "QU D",
                             "Q\x80==", "QQ!=", "QQQ-"}) {
        EXPECT_EQ(decoded(text), "malformed") << text;
    }
}

}  // namespace
