#include <cerrno>
#include <csignal>
#include <cstdio>

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
    for (std::size_t at = 0; at < bytes.size(); at += 32768) {
        calls.push_back({0, EXTFN_TYPE_BINARY, bytes.substr(at, 32768), at > 0});
    }
    return calls;
}

const SetCall null_result = {0, EXTFN_TYPE_BINARY, std::nullopt};

class FileProcedures : public testing::Test {
  protected:
    void TearDown() override { reads_before_error = -1; }

    // The calls that xp_write_file makes, always one status.
    int32 write(FakeHost& given) {
        const std::vector<SetCall> calls = given.call(xp_write_file);
        EXPECT_EQ(calls.size(), 1U);
        for (const int32 status : {0, 1}) {
            if (!calls.empty() && calls[0] == status_call(status)) return status;
        }
        return -1;
    }

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

TEST_F(FileProcedures, read_delivers_pieces_of_32768_and_nothing_for_an_empty_file) {
    for (const std::size_t length : {0, 1, 32767, 32768, 32769, 65536, 100000}) {
        host.give(1, scratch.file_with("data", pattern(length)));
        EXPECT_EQ(host.call(xp_read_file), pieces_of(pattern(length))) << length;
    }
}

TEST_F(FileProcedures, read_ends_in_null_when_the_host_refuses_or_the_file_fails) {
    const std::vector<SetCall> all = pieces_of(pattern(70000));
    host.give(1, scratch.file_with("data", pattern(70000)));
    for (std::size_t n = 0; n < all.size(); ++n) {
        std::vector<SetCall> expected(all.begin(), all.begin() + static_cast<long>(n) + 1);
        expected.push_back(null_result);
        host.sets_before_refusal = static_cast<int>(n);
        EXPECT_EQ(host.call(xp_read_file), expected) << "refused at " << n;

        expected.erase(expected.end() - 2);
        reads_before_error = static_cast<int>(n);
        EXPECT_EQ(host.call(xp_read_file), expected) << "failed at " << n;
        reads_before_error = -1;
    }

    const std::vector<SetCall> only_null = {null_result};
    for (const std::string& name : {scratch.file("missing"), scratch.file("."), std::string()}) {
        EXPECT_EQ(host.give(1, name).call(xp_read_file), only_null) << name;
    }
    EXPECT_EQ(host.give(1, std::nullopt).call(xp_read_file), only_null);
}

TEST_F(FileProcedures, an_unreadable_name_sets_nothing) {
    host.give(2, "contents");
    EXPECT_TRUE(host.call(xp_read_file).empty());
    EXPECT_TRUE(host.call(xp_write_file).empty());
}

TEST_F(FileProcedures, names_are_joined_and_terminated_whatever_pieces_they_come_in) {
    const std::string path = scratch.file_with(std::string(200, 'n'), "here");
    host.give(1, path);
    for (const uint32 size : {1U, 7U, static_cast<uint32>(path.size())}) {
        host.piece_size = size;
        EXPECT_EQ(host.call(xp_read_file), pieces_of("here")) << size;
    }
    host.piece_size = 10;
    host.give(2, "contents");
    host.good_pieces = 2;
    EXPECT_EQ(host.call(xp_read_file), std::vector{null_result});
    host.good_pieces = 2;
    EXPECT_EQ(write(host), 1);
    EXPECT_EQ(bytes_of(path), "here");
}

TEST_F(FileProcedures, write_stores_every_byte_at_the_piece_boundaries) {
    for (const std::size_t length : {1, 32767, 32768, 32769, 100000}) {
        host.give(1, scratch.file("copy")).give(2, pattern(length));
        EXPECT_EQ(write(host), 0);
        EXPECT_EQ(bytes_of(scratch.file("copy")), pattern(length)) << length;
    }
}

TEST_F(FileProcedures, write_cuts_a_longer_file_and_leaves_it_alone_for_an_empty_value) {
    const std::string path = scratch.file_with("old", std::string(100, 'o'));
    host.give(1, path).give(2, "0123456789", EXTFN_TYPE_BINARY);
    EXPECT_EQ(write(host), 0);
    EXPECT_EQ(bytes_of(path), "0123456789");

    for (const std::optional<std::string>& value : {std::optional<std::string>(""), {}}) {
        EXPECT_EQ(write(host.give(2, value)), 1);
        EXPECT_EQ(bytes_of(path), "0123456789");
        EXPECT_EQ(write(host.give(1, scratch.file("new"))), 1);
        EXPECT_NE(access(scratch.file("new").c_str(), F_OK), 0);
    }
    host.arguments.erase(2);
    EXPECT_EQ(write(host), 1);
    EXPECT_EQ(write(host.give(2, "x").give(1, std::nullopt)), 1);
    EXPECT_EQ(write(host.give(1, scratch.file("no/such/folder"))), 1);
}

TEST_F(FileProcedures, write_keeps_the_old_tail_when_a_piece_does_not_come) {
    host.piece_size = 64;
    for (const auto fault :
         {FakeHost::Fault::Refused, FakeHost::Fault::Empty, FakeHost::Fault::Null}) {
        const std::string path = scratch.file_with("old", std::string(150, 'o'));
        host.give(1, path).give(2, std::string(140, 'n'));
        host.good_pieces = 1;
        host.piece_fault = fault;
        EXPECT_EQ(write(host), 1);
        EXPECT_EQ(bytes_of(path), std::string(128, 'n') + std::string(22, 'o'));
    }
}

TEST_F(FileProcedures, a_new_file_gets_mode_0660_and_no_child_sees_its_descriptor) {
    const mode_t before = umask(0);
    host.give(1, scratch.file("fresh")).give(2, "x");
    EXPECT_EQ(write(host), 0);
    umask(before);
    struct stat found;
    const std::string path = std::filesystem::canonical(scratch.file("fresh")).string();
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0660U);

    std::string seen = "not run";
    host.on_set = [&] {
        seen.clear();
        std::FILE* const child = popen("ls -l /proc/self/fd", "r");
        for (int c; (c = fgetc(child)) != EOF;) seen += static_cast<char>(c);
        pclose(child);
    };
    host.call(xp_read_file);
    EXPECT_THAT(seen, testing::HasSubstr("/proc"));
    EXPECT_THAT(seen, testing::Not(testing::HasSubstr(path)));
}

TEST_F(FileProcedures, a_failing_write_is_not_detected_and_raises_no_signal) {
    const std::string fifo = scratch.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    host.give(1, fifo).give(2, pattern(200));
    host.piece_size = 64;
    host.on_get_piece = [&] {
        if (reader != -1) close(reader);
        reader = -1;
    };
    EXPECT_EQ(write(host), 0);
    EXPECT_EQ(reader, -1);
}
