
#include <gtest/gtest.h>

#include "tests/utils/etc/test_streams.h"

namespace {

struct Expected {
    std::string data;
    size_t position = 0;
    bool whole_reads;  // reads are short at the end only

    size_t left() const { return data.size() - position; }
    void next_is(const std::string& got, size_t asked) {
        const size_t most = std::min(asked, left());
        ASSERT_LE(got.size(), most);
        ASSERT_GE(got.size(), whole_reads ? most : std::min<size_t>(most, 1));
        ASSERT_EQ(data.substr(position, got.size()), got);
        position += got.size();
    }
};

void read_at_random(UTIStream& in, Expected& expected, Random& random) {
    const size_t n = up_to(random, 3) == 0 ? up_to(random, 200) : up_to(random, 12);
    std::string got(n, '?');
    switch (up_to(random, 4)) {
    case 0: {
        TestOStream out;
        const size_t copied = in.append_to(out, n);
        ASSERT_EQ(std::min(n, expected.left()), copied);
        return expected.next_is(out.written, copied);
    }
    case 1: {
        // Unbuffered skipping counts what it asked for, so that only what follows shows the truth.
        if (!expected.whole_reads) return;
        const size_t skipped = in.skip(n), passed = std::min(n, expected.left());
        expected.position += passed;
        ASSERT_TRUE(!in.is_buffered() || skipped == passed);
        return;
    }
    case 2: {
        a_byte byte = 0;
        const size_t count = in.get(byte);
        return expected.next_is(std::string(count, static_cast<char>(byte)), 1);
    }
    default:
        got.resize(in.get(got.data(), n));
        return expected.next_is(got, n);
    }
}

TEST(InputStreams, give_the_bytes_of_their_source_through_any_stack) {
    for (unsigned seed = 0; seed < 3000 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, up_to(random, 600));
        InputStack stack(random, data);
        UTIStream& in = stack.top();

        Expected expected{data, 0, stack.whole_reads};
        for (size_t n = up_to(random, 30); n != 0 && !HasFatalFailure(); --n) {
            read_at_random(in, expected, random);
            EXPECT_EQ(expected.position, stack.count ? stack.count() : expected.position);
        }
        std::string rest(data.size() + 1, '\0');
        UTBufOStream span(rest.data(), rest.size());
        rest.resize(in.safe_append_to(span));
        EXPECT_EQ(data.substr(expected.position), rest);
        EXPECT_TRUE(in.eof());
    }
}

TEST(OutputStreams, deliver_a_prefix_through_any_stack) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string data = random_bytes(random, up_to(random, 600));
        const size_t capacity = up_to(random, 1) != 0 ? data.size() : up_to(random, 600);
        const size_t end = up_to(random, 2) == 0 ? up_to(random, 600) : data.size();
        std::string block(capacity + 1, '~');
        size_t accepted = 0;
        bool refusals_show = false, ended = false;
        {
            OutputStack stack(random, block.data(), capacity);
            refusals_show = stack.refusals_show;
            UTOStream& out = stack.top();
            size_t offered = 0;
            for (size_t position = 0; position < data.size(); position += offered) {
                ended = ended || position > end;
                if (ended) out.set_eof();
                offered = std::min(1 + up_to(random, 25), data.size() - position);
                const size_t taken = offered == 1 ? out.put(static_cast<a_byte>(data[position]))
                                                  : out.put(&data[position], offered);
                EXPECT_LE(taken, ended ? 0 : offered);
                accepted += taken;
                EXPECT_EQ(accepted, stack.count ? stack.count() : accepted);
            }
            if (refusals_show && !ended) {
                EXPECT_EQ(std::min(capacity, data.size()), accepted);
                EXPECT_EQ(data.size() > capacity, stack.top().eof());
            }
        }
        // A buffer that is told to end discards what it holds.
        const size_t least = !ended          ? std::min(capacity, data.size())
                             : refusals_show ? accepted
                                             : 0;
        EXPECT_EQ(data.substr(0, least), block.substr(0, least));
    }
}

}  // namespace
