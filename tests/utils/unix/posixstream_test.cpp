#include "utils/unix/posixstream.h"

#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/scratch.h"

namespace {

std::string rest_of(UTIStream& in) {
    std::string text(100, '\0');
    text.resize(in.get(text.data(), text.size()));
    return text;
}

struct PosixStream : testing::Test {
    ScratchFolder scratch;
    const std::string name = scratch.file_with("f", "");
};

TEST_F(PosixStream, writes_a_file_and_reads_it_back) {
    PosixOStream out;
    ASSERT_TRUE(out.open(name.c_str(), O_WRONLY | O_TRUNC, 0600));
    out << "hello, " << uint32{1} << " world";
    out.close();
    PosixIStream in;
    for (int i = 0; i < 2; ++i) {  // an end that was met is forgotten
        ASSERT_TRUE(in.sopen(name.c_str(), O_RDONLY, 0x40, 0));
        EXPECT_EQ("hello, 1 world", rest_of(in));
        EXPECT_TRUE(rest_of(in).empty() && in.eof());
    }
}

TEST_F(PosixStream, keeps_the_system_error_that_ended_it) {
    PosixIStream in;
    EXPECT_FALSE(in.open((name + "-missing").c_str(), O_RDONLY, 0));
    EXPECT_EQ(UTErrorCode(ET_POSIX, ENOENT), in.get_last_error());
    ASSERT_TRUE(in.open("/", O_RDONLY, 0));
    EXPECT_EQ("", rest_of(in));
    EXPECT_EQ(uint32{EISDIR}, in.get_last_error().code());

    PosixOStream full;
    ASSERT_TRUE(full.open("/dev/full", O_WRONLY, 0));
    EXPECT_EQ(0u, full.put("x"));
    EXPECT_TRUE(full.eof());
    EXPECT_EQ(uint32{ENOSPC}, full.get_last_error().code());
}

TEST_F(PosixStream, destruction_closes_what_the_stream_owns) {
    for (const bool owns : {false, true}) {
        const int fd = open(name.c_str(), O_WRONLY);
        { PosixOStream out(fd, owns); }
        EXPECT_EQ(owns ? -1 : 0, close(fd));
    }
}

}  // namespace
