#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "extdll/procedures.h"
#include "tests/extdll/fakehost.h"
#include "tests/scratch.h"

namespace {

int reads_before_error = -1;

// What xp_read_file hands over for these bytes when nothing is refused.
std::vector<SetCall> pieces_of(const std::string& bytes) {
    std::vector<SetCall> calls;
    for (std::size_t at = 0; at < bytes.size(); at += 32768)
        calls.push_back({0, EXTFN_TYPE_BINARY, bytes.substr(at, 32768), at > 0});
    return calls;
}

const SetCall null_result = {0, EXTFN_TYPE_BINARY, std::nullopt};
const std::vector<SetCall> only_null = {null_result};
const std::vector<SetCall> written = {status_call(0)};
const std::vector<SetCall> not_written = {status_call(1)};

struct FileProcedures : testing::Test {
    ScratchFolder scratch;
    FakeHost host;
};

}  // namespace

extern "C" ssize_t __real_read(int, void*, size_t);
extern "C" ssize_t __wrap_read(int fd, void* buffer, size_t length) {
    if (reads_before_error == 0) {
        errno = EIO;
        return -1;
    }
    if (reads_before_error > 0) --reads_before_error;
    return __real_read(fd, buffer, length);
}

TEST_F(FileProcedures, pass_every_byte_at_the_piece_boundaries) {
    for (const std::size_t length : {0, 1, 32767, 32768, 32769, 65536, 100000}) {
        host.give(1, scratch.file("data")).give(2, pattern(length));
        EXPECT_EQ(length > 0 ? written : not_written, host.call(xp_write_file));
        EXPECT_EQ(pattern(length), bytes_of(scratch.file("data"))) << length;
        host.give(1, scratch.file_with("data", pattern(length)));
        EXPECT_EQ(pieces_of(pattern(length)), host.call(xp_read_file)) << length;
    }
}

TEST_F(FileProcedures, read_ends_in_null_when_the_host_refuses_or_the_file_fails) {
    const std::vector<SetCall> all = pieces_of(pattern(70000));
    host.give(1, scratch.file_with("data", pattern(70000)));
    for (std::size_t n = 0; n < all.size(); ++n) {
        std::vector<SetCall> expected(all.begin(), all.begin() + static_cast<long>(n) + 1);
        expected.push_back(null_result);
        host.sets_before_refusal = static_cast<int>(n);
        EXPECT_EQ(expected, host.call(xp_read_file)) << "refused at " << n;

        expected.erase(expected.end() - 2);
        reads_before_error = static_cast<int>(n);
        EXPECT_EQ(expected, host.call(xp_read_file)) << "failed at " << n;
        reads_before_error = -1;
    }
    for (const std::string& name : {scratch.file("missing"), scratch.file("."), std::string()})
        EXPECT_EQ(only_null, host.give(1, name).call(xp_read_file)) << name;
    EXPECT_EQ(only_null, host.give(1, std::nullopt).call(xp_read_file));
}

TEST_F(FileProcedures, a_name_comes_whole_and_terminated_or_not_at_all) {
    host.give(2, "contents");
    EXPECT_TRUE(host.call(xp_read_file).empty());
    EXPECT_TRUE(host.call(xp_write_file).empty());
    const std::string path = scratch.file_with(std::string(200, 'n'), "here");
    host.give(1, path);
    for (const uint32 size : {1U, 7U, static_cast<uint32>(path.size())}) {
        host.piece_size = size;
        EXPECT_EQ(pieces_of("here"), host.call(xp_read_file)) << size;
    }
    host.piece_size = 10;
    host.good_pieces = 2;
    EXPECT_EQ(only_null, host.call(xp_read_file));
    host.good_pieces = 2;
    EXPECT_EQ(not_written, host.call(xp_write_file));
    EXPECT_EQ("here", bytes_of(path));
}

TEST_F(FileProcedures, write_cuts_a_longer_file_and_leaves_it_alone_for_an_empty_value) {
    const std::string path = scratch.file_with("old", std::string(100, 'o'));
    host.give(1, path).give(2, "0123456789", EXTFN_TYPE_BINARY);
    EXPECT_EQ(written, host.call(xp_write_file));
    for (const std::optional<std::string>& value : {std::optional<std::string>(""), {}}) {
        EXPECT_EQ(not_written, host.give(1, path).give(2, value).call(xp_write_file));
        EXPECT_EQ("0123456789", bytes_of(path));
        EXPECT_EQ(not_written, host.give(1, scratch.file("new")).call(xp_write_file));
        EXPECT_NE(0, access(scratch.file("new").c_str(), F_OK));
    }
    host.arguments.erase(2);
    EXPECT_EQ(not_written, host.call(xp_write_file));
    EXPECT_EQ(not_written, host.give(2, "x").give(1, std::nullopt).call(xp_write_file));
    EXPECT_EQ(not_written, host.give(1, scratch.file("no/such/folder")).call(xp_write_file));
}

TEST_F(FileProcedures, write_keeps_the_old_tail_when_a_piece_does_not_come) {
    host.piece_size = 64;
    for (const auto fault : FakeHost::faults) {
        const std::string path = scratch.file_with("old", std::string(150, 'o'));
        host.give(1, path).give(2, std::string(140, 'n'));
        host.good_pieces = 1;
        host.piece_fault = fault;
        EXPECT_EQ(not_written, host.call(xp_write_file));
        EXPECT_EQ(std::string(128, 'n') + std::string(22, 'o'), bytes_of(path));
    }
}

TEST_F(FileProcedures, a_new_file_gets_mode_0660) {
    const mode_t before = umask(0);
    host.give(1, scratch.file("fresh")).give(2, "x");
    EXPECT_EQ(written, host.call(xp_write_file));
    umask(before);
    struct stat found;
    ASSERT_EQ(0, stat(scratch.file("fresh").c_str(), &found));
    EXPECT_EQ(0660U, found.st_mode & 07777);
}

TEST_F(FileProcedures, a_failing_write_is_not_detected_and_raises_no_signal) {
    const std::string fifo = scratch.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    host.give(1, fifo).give(2, pattern(100)).piece_size = 64;
    host.on_get_piece = [&] { close(reader); };
    EXPECT_EQ(written, host.call(xp_write_file));
}
