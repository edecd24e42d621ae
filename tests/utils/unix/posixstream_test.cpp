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

class PosixStream : public testing::Test {
  protected:
    ScratchFolder scratch;
    const std::string name = scratch.file_with("f", "");
};

TEST_F(PosixStream, writes_a_file_and_reads_it_back) {
    PosixOStream out;
    ASSERT_TRUE(out.open(name.c_str(), O_WRONLY | O_TRUNC, 0600));
    EXPECT_EQ(out.put(""), 0u);
    EXPECT_EQ(out.put("hello, "), 7u);
    out << uint32{1} << " world";
    out.close();

    PosixIStream in;
    ASSERT_TRUE(in.sopen(name.c_str(), O_RDONLY, 0x40, 0));
    EXPECT_EQ(in.get(static_cast<a_byte*>(nullptr), 0), 0u);
    EXPECT_EQ(rest_of(in), "hello, 1 world");
    EXPECT_FALSE(in.eof());
    EXPECT_EQ(rest_of(in), "");
    EXPECT_TRUE(in.eof());
    EXPECT_FALSE(in.is_error());
    ASSERT_TRUE(in.open(name.c_str(), O_RDONLY, 0));
    EXPECT_EQ(rest_of(in), "hello, 1 world");
}

TEST_F(PosixStream, keeps_the_system_error_that_ended_it) {
    PosixIStream in;
    EXPECT_FALSE(in.open((name + "-missing").c_str(), O_RDONLY, 0));
    EXPECT_EQ(in.get_last_error(), UTErrorCode(ET_POSIX, ENOENT));
    EXPECT_EQ(rest_of(in), "");
    EXPECT_EQ(in.get_last_error().code(), uint32{ENOENT});
    ASSERT_TRUE(in.open("/", O_RDONLY, 0));
    EXPECT_FALSE(in.is_error());
    EXPECT_EQ(rest_of(in), "");
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(in.get_last_error().code(), uint32{EISDIR});

    PosixOStream out;
    EXPECT_FALSE(out.sopen("/", O_WRONLY, 0, 0));
    EXPECT_EQ(out.get_last_error().code(), uint32{EISDIR});
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    PosixOStream broken(ends[1], true);
    EXPECT_EQ(broken.put("x"), 0u);
    EXPECT_TRUE(broken.eof());
    EXPECT_EQ(broken.get_last_error().code(), uint32{EPIPE});
}

TEST_F(PosixStream, destruction_and_opening_anew_close_what_the_stream_owns) {
    for (const bool do_close : {false, true}) {
        for (const bool do_open : {false, true}) {
            const int fd = open(name.c_str(), O_WRONLY);
            {
                PosixOStream out(fd, do_close);
                EXPECT_TRUE(!do_open || out.open("/dev/null", O_WRONLY, 0));
            }
            EXPECT_EQ(close(fd), do_close ? -1 : 0);
        }
    }
}

}  // namespace
