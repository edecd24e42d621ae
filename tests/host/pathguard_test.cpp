#include "host/postgres/pathguard.h"

#include <cerrno>
#include <cstdarg>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "tests/scratch.h"

using namespace host;

namespace {
bool kernel_is_old = false;
}

extern "C" {

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
    if (number == SYS_openat2 && kernel_is_old) {
        errno = ENOSYS;
        return -1;
    }
    va_list list;
    va_start(list, number);
    long given[4];
    for (long& argument : given) argument = va_arg(list, long);
    va_end(list);
    return __real_syscall(number, given[0], given[1], given[2], given[3]);
}
}

namespace {

// allowed/{file,sub/file,in -> sub/file,out -> ../secret,up -> ..}, beside allowed-not/file and
// secret
class PathGuard : public testing::TestWithParam<bool> {
  protected:
    PathGuard() : allowed(scratch.file("allowed")) {
        kernel_is_old = GetParam();
        std::filesystem::create_directories(allowed + "/sub");
        std::filesystem::create_directories(allowed + "-not");
        for (const char* name : {"allowed/file", "allowed/sub/file", "allowed-not/file", "secret"})
            EXPECT_FALSE(scratch.file_with(name, name).empty());
        std::filesystem::create_symlink("sub/file", allowed + "/in");
        std::filesystem::create_symlink("../secret", allowed + "/out");
        std::filesystem::create_symlink("..", allowed + "/up");
        mkfifo((allowed + "/fifo").c_str(), 0600);
    }
    ~PathGuard() override { kernel_is_old = false; }

    Found open(const std::string& name, IfMissing if_missing = IfMissing::Leave) {
        const std::string other = scratch.file("there-is-none");
        const char* folders[] = {other.c_str(), allowed.c_str()};
        return open_below(folders, name, if_missing, file);
    }

    const ScratchFolder scratch;
    const std::string allowed;
    Descriptor file;
};

TEST_P(PathGuard, nothing_leads_out) {
    const Found link_within = kernel_is_old ? Found::Outside : Found::Opened;
    const struct {
        const char* name;
        Found found;
    } rows[] = {
        {"allowed/file", Found::Opened},
        {"allowed//./sub/file", Found::Opened},
        {"allowed/fifo", Found::Opened},
        {"allowed/none", Found::Missing},
        {"allowed/none/file", Found::Missing},
        {"allowed/file/file", Found::Missing},
        {"allowed/file/", Found::Missing},
        {"allowed/sub/.", Found::Opened},
        {"there-is-none/file", Found::Missing},
        {"secret", Found::Outside},
        {"allowed-not/file", Found::Outside},
        {"allowed/../secret", Found::Outside},
        {"allowed/out", Found::Outside},
        {"allowed/up/secret", Found::Outside},
        {"allowed/in", link_within},
        {"../allowed/file", Found::Outside},
    };
    for (const auto& row : rows) EXPECT_EQ(row.found, open(scratch.file(row.name))) << row.name;
    EXPECT_EQ(Found::Outside, open("file"));
    std::filesystem::current_path(allowed);
    EXPECT_EQ(Found::Opened, open("file"));
    std::filesystem::current_path("/");
}

TEST_P(PathGuard, a_hold_stays_on_the_file_that_was_judged) {
    ASSERT_EQ(Found::Opened, open(allowed + "/file"));
    std::filesystem::remove(allowed + "/file");
    std::filesystem::create_symlink("../secret", allowed + "/file");
    EXPECT_EQ("allowed/file", bytes_of(name_of(file)));
}

TEST_P(PathGuard, a_new_file_is_made_in_the_folder_alone) {
    EXPECT_EQ(Found::Opened, open(allowed + "/sub/new", IfMissing::Create));
    EXPECT_TRUE(std::filesystem::is_empty(allowed + "/sub/new"));
    EXPECT_EQ(Found::Opened, open(allowed + "/sub/file", IfMissing::Create));
    EXPECT_EQ("allowed/sub/file", bytes_of(name_of(file)));
    EXPECT_EQ(Found::Missing, open(allowed + "/folder/", IfMissing::Create));
    EXPECT_EQ(Found::Outside, open(allowed + "/up/new", IfMissing::Create));
    std::filesystem::create_symlink("../new", allowed + "/dangling");
    EXPECT_NE(Found::Opened, open(allowed + "/dangling", IfMissing::Create));
    EXPECT_FALSE(std::filesystem::exists(scratch.file("new")));
}

TEST_P(PathGuard, a_link_has_the_name_and_goes) {
    ASSERT_EQ(Found::Opened, open(allowed + "/file"));
    {
        NamedLink link;
        ASSERT_TRUE(link.make(scratch.file("new folder"), "a \"b", name_of(file)));
        EXPECT_TRUE(link.path().ends_with("/a \"b"));
        EXPECT_EQ("allowed/file", bytes_of(link.path()));
    }
    EXPECT_TRUE(std::filesystem::is_empty(scratch.file("new folder")));
}

INSTANTIATE_TEST_SUITE_P(Kernels, PathGuard, testing::Bool());

}  // namespace
