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
    EXPECT_EQ(1u, in.get(bytes, 1));
    EXPECT_EQ(3u, in.get(bytes, 3));
    EXPECT_EQ(1, in.refills);
    FourByteOStream out;
    EXPECT_EQ(3u, out.put("abc"));
    EXPECT_EQ(0, out.calls);
    EXPECT_EQ(1u, out.put("d"));
    EXPECT_EQ(1, out.calls);
}

TEST(BufferedStreams, a_crossing_read_that_ends_with_a_span_refills_at_once) {
    char bytes[8];
    FourByteIStream in(2);
    in.get(bytes, 1);
    EXPECT_EQ(7u, in.get(bytes, 7));
    EXPECT_EQ(3, in.refills);
    EXPECT_TRUE(in.eof());
}

TEST(UnbufferedStreams, skip_counts_what_it_asked_for) {
    TestIStream in(std::string(5000, 'x'), [] { return 3000; });
    EXPECT_EQ(8000u, in.skip(8000));  // pieces of 4096 and 3904, of which 3000 and 2000 arrived
    EXPECT_EQ((std::vector<size_t>{4096, 3904}), in.requests);
}

TEST(StreamBuffers, read_in_blocks_and_write_full_buffers) {
    TestIStream source("abcdefgh", [] { return 3; });
    UTIStreamBuffer in(source, 5);
    char bytes[8];
    EXPECT_EQ(7u, in.get(bytes, 7));
    EXPECT_EQ((std::vector<size_t>{5, 5, 5}), source.requests);

    std::vector<size_t> writes;
    TestOStream sink([&](TestOStream&, size_t n) {
        writes.push_back(n);
        return size_t{0};  // refused, which the buffer does not look at
    });
    {
        UTOStreamBuffer out(sink, 4);
        for (const char* text : {"abc", "d", "efghij"}) EXPECT_EQ(strlen(text), out.put(text));
        out.flush();
        out.put("k");
    }
    EXPECT_EQ((std::vector<size_t>{4, 4, 2, 1}), writes);
}

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
    for (const char* piece : {"abcd", "", "ef", ""}) EXPECT_EQ(piece, in.read(10));
    EXPECT_TRUE(in.eof());
}

TEST(FormattedInput, takes_values_in_pieces) {
    TestIStream in("\x78\x56\x34\x12\xE2\x82\xAC!\xE2\x82", [] { return 1; });
    uint32 number = 0;
    in >> number;
    EXPECT_EQ(0x12345678u, number);
    a_mb_char character;
    for (const char* expected : {"\xE2\x82\xAC", "!", "\xE2\x82", ""}) {
        in >> character;
        EXPECT_EQ(expected, std::string(character.bytes, character.bytes + character.length));
    }
}

TEST(PartialBufferedStream, skips_the_wrong_way_round) {
    ScriptedIStream in("0123456789abcdefghijklmnopqrstuv", {10, 15, 2, 1, 3, 1});
    in.read(0);
    EXPECT_EQ(10u, in.skip(3));  // too short for the buffer: 7 more are to go
    EXPECT_EQ("r", in.read(9));  // 7 twice leave 1 of the next 15, 1 twice are the two after that
    in.read(0);
    EXPECT_EQ(9u, in.skip(9));  // longer than the buffer: nothing is left to skip
    EXPECT_EQ("v", in.read(9));
}

}  // namespace
