#include <cmath>
#include <gtest/gtest.h>

#include "tests/utils/etc/test_streams.h"

namespace {

// Spans of four bytes, counting the calls that get() and put() avoid.
struct FourByteIStream : UTBufferedIStream {
    explicit FourByteIStream(int spans) : _spans(spans) {}
    void refill() override {
        ++refills;
        if (refills > _spans) return set_eof();
        set_span(_block, sizeof _block);
    }
    const a_byte _block[4] = {'a', 'b', 'c', 'd'};
    int _spans;
    int refills = 0;
};

struct FourByteOStream : UTBufferedOStream {
    FourByteOStream() { set_span(_block, sizeof _block); }
    size_t do_put(const a_byte* data, size_t n) override {
        ++calls;
        return UTBufferedOStream::do_put(data, n);
    }
    void make_room() override { set_eof(); }
    a_byte _block[4];
    int calls = 0;
};

TEST(BufferedStreams, get_takes_an_exact_fit_from_the_span_and_put_does_not) {
    char bytes[8];
    FourByteIStream in(2);
    EXPECT_EQ(in.get(bytes, 1), 1u);
    EXPECT_EQ(in.get(bytes, 3), 3u);
    EXPECT_EQ(in.refills, 1);
    in.get(bytes, 1);
    in.set_eof();
    EXPECT_EQ(in.get(bytes, 1), 0u);

    FourByteOStream out;
    EXPECT_EQ(out.put("abc"), 3u);
    EXPECT_EQ(out.calls, 0);
    EXPECT_EQ(out.put("d"), 1u);
    EXPECT_EQ(out.calls, 1);
    EXPECT_FALSE(out.eof());
    EXPECT_EQ(out.put("e"), 0u);
    EXPECT_TRUE(out.eof());
}

TEST(BufferedStreams, a_crossing_read_that_ends_with_a_span_refills_at_once) {
    char bytes[8];
    FourByteIStream in(2);
    in.get(bytes, 1);
    EXPECT_EQ(in.get(bytes, 7), 7u);
    EXPECT_EQ(in.refills, 3);
    EXPECT_TRUE(in.eof());
}

TEST(UnbufferedStreams, skip_counts_what_it_asked_for) {
    TestIStream in(std::string(5000, 'x'), [] { return 3000; });
    EXPECT_EQ(in.skip(8000), 8000u);  // pieces of 4096 and 3904, of which 3000 and 2000 arrived
    EXPECT_EQ(in.requests, (std::vector<size_t>{4096, 3904}));
    EXPECT_EQ(in.skip(1), 1u);
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(in.skip(1), 0u);
    EXPECT_EQ(in.get_seekable(), nullptr);
}

TEST(UnbufferedStreams, append_goes_on_when_the_output_refuses_and_stops_when_it_ends) {
    TestIStream whole(std::string(10000, 'x'));
    TestOStream failing([](TestOStream&, size_t) { return ~size_t{0}; });
    EXPECT_EQ(whole.append_to(failing, 9000), 0u);
    EXPECT_EQ(whole.requests, (std::vector<size_t>{4096, 4096, 4096, 4096}));
    EXPECT_TRUE(whole.eof());

    TestIStream stopped(std::string(10000, 'x'));
    TestOStream ending([](TestOStream& self, size_t n) {
        self.set_eof();
        return n - 1;
    });
    EXPECT_EQ(stopped.safe_append_to(ending), 1023u);
    EXPECT_EQ(stopped.requests, (std::vector<size_t>{1024}));
}

TEST(StrOStream, keeps_room_for_its_terminator) {
    for (size_t size = 0; size < 5; ++size) {
        const std::string fitting(size == 0 ? 0 : size - 1, 'x');
        std::string block(8, '~');
        UTStrOStream out(block.data(), size);
        EXPECT_EQ(out.put(fitting.c_str()), fitting.size());
        EXPECT_EQ(out.Fits(), size != 0);
        EXPECT_EQ(out.put("yz"), 0u);
        EXPECT_TRUE(out.eof() && !out.Fits());
        EXPECT_EQ(out.GetString(), fitting);
        EXPECT_EQ(block.substr(size), std::string(8 - size, '~'));
    }
}

TEST(StreamBuffers, read_in_blocks_and_write_full_buffers) {
    TestIStream source("abcdefgh", [] { return 3; });
    UTIStreamBuffer in(source, 5);
    char bytes[8];
    EXPECT_EQ(in.get(bytes, 7), 7u);
    EXPECT_EQ(source.requests, (std::vector<size_t>{5, 5, 5}));

    std::vector<size_t> writes;
    TestOStream sink([&](TestOStream&, size_t n) {
        writes.push_back(n);
        return size_t{0};  // refused, which the buffer does not look at
    });
    {
        UTOStreamBuffer out(sink, 4);
        for (const char* text : {"abc", "d", "efghij"}) EXPECT_EQ(out.put(text), strlen(text));
        out.flush();
        out.flush();
        out.put("k");
    }
    EXPECT_EQ(writes, (std::vector<size_t>{4, 4, 2, 1}));
}

// Each refill brings a piece of the next length; 0 is one that has not arrived yet.
struct ScriptedIStream : TestPartialIStream {
    ScriptedIStream(std::string data, std::vector<size_t> pieces)
        : TestPartialIStream(std::move(data), [pieces, next = size_t{0}]() mutable {
              return next < pieces.size() ? pieces[next++] : 0;
          }) {}
    std::string read(size_t n) {
        char bytes[64];
        return {bytes, get(bytes, n)};
    }
};

TEST(PartialBufferedStream, hands_out_one_refill_and_survives_an_empty_one) {
    ScriptedIStream in("abcdef", {4, 0, 2});
    for (const char* piece : {"abcd", "", "ef", ""}) {
        EXPECT_FALSE(in.eof());
        EXPECT_EQ(in.read(10), piece);
    }
    EXPECT_TRUE(in.eof());
}

TEST(PartialBufferedStream, skips_the_wrong_way_round) {
    ScriptedIStream in("0123456789abcdefghijklmnopqrstuv", {10, 15, 2, 1, 3, 1});
    in.read(0);
    EXPECT_EQ(in.skip(3), 10u);  // too short for the buffer: 7 more are to go
    EXPECT_EQ(in.read(9), "r");  // 7 twice leave 1 of the next 15, 1 twice are the two after that
    in.read(0);
    EXPECT_EQ(in.skip(9), 9u);  // longer than the buffer: nothing is left to skip
    EXPECT_EQ(in.read(9), "v");
}

TEST(FormattedStreams, write_text_that_reads_back) {
    char text[200];
    UTStrOStream out(text, sizeof text);
    out << a_byte{'A'} << 'b' << ' ' << int32{-2147483647 - 1} << ' ' << uint32{4294967295u} << ' '
        << uint64{18446744073709551615u} << ' ' << 0.1 << ' ' << -1e300 << ' ' << 5e-324 << ' '
        << 3.0 << ' ' << HUGE_VAL << "!";
    EXPECT_STREQ(out.GetString(),
                 "Ab -2147483648 4294967295 18446744073709551615 0.1 -1e+300 5e-324 3 inf!");
}

TEST(FormattedStreams, read_bytes_little_endian_integers_and_utf8_characters) {
    const char data[] = "\x01\x02\x03\x84\xFE\xFF\xFF\xFFx\xE2\x82\xAC\x80\xF0\x9F";
    UTBufIStream in(data, sizeof data - 1);
    uint32 u = 0;
    int32 i = 0;
    a_byte byte = 0;
    in >> u >> i >> byte;
    EXPECT_EQ(u, 0x84030201u);
    EXPECT_EQ(i, -2);
    EXPECT_EQ(byte, 'x');
    for (const size_t length : {3, 1, 2, 0}) {
        a_mb_char character = {};
        in >> character;
        EXPECT_EQ(character.length, length);
    }
    EXPECT_TRUE(in.eof());
    in >> i;
    EXPECT_EQ(i, -2);
}

TEST(BufferedStreams, compare_their_rest_across_span_boundaries) {
    for (const char* text : {"abc", "abd", "abcd", "ab", "", "\xFF"}) {
        TestIStream source("abc");
        UTIStreamBuffer in(source, 2);
        UTBufIStream other(text, strlen(text));
        const int order = in.compare(other), expected = strcmp("abc", text);
        EXPECT_EQ((order > 0) - (order < 0), (expected > 0) - (expected < 0)) << text;
        EXPECT_EQ(other.compare(other), 0);
    }
}

}  // namespace
