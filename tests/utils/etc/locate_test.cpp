#include "utils/etc/locate.h"

#include <filesystem>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/scratch.h"

namespace {

namespace fs = std::filesystem;

/// What is found from the folder D = top/a/d, as a path below top; empty for nothing.
std::string found(const fs::path& top, a_locate_kind kind, const char* name) {
    char path[LOCATE_MAX_PATH];
    if (!ut_locate_file_from((top / "a/d").c_str(), kind, name, path, sizeof path)) {
        EXPECT_STREQ(path, "");
        return "";
    }
    return fs::path(path).lexically_normal().lexically_relative(top).string();
}

void touch(const fs::path& file) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "x";
}

}  // namespace

TEST(Locate, directories_are_searched_in_their_order) {
    const std::pair<a_locate_kind, std::vector<std::string>> rows[] = {
        {LOCATE_LIBRARY, {"a/lib/f", "a/lib/quorel/f", "a/d/f"}},
        {LOCATE_RESOURCE, {"share/quorel/f", "a/share/quorel/f", "a/d/f"}},
    };
    for (const auto& [kind, places] : rows) {
        ScratchFolder scratch;
        const fs::path top = scratch.file("");
        fs::create_directories(top / "a/d");
        touch(top / "a/f");
        touch(top / "f");
        EXPECT_EQ(found(top, kind, "f"), "");
        for (const std::string& place : places) {
            touch(top / place);
            EXPECT_EQ(found(top, kind, "f"), place);
        }
        EXPECT_EQ(found(top, static_cast<a_locate_kind>(3), "f"), "");
    }
}

TEST(Locate, only_regular_files_with_bare_names_are_found) {
    ScratchFolder scratch;
    const fs::path top = scratch.file("");
    fs::create_directories(top / "a/d/folder");
    touch(top / "a/f");
    touch(top / "a/d/f");
    fs::create_symlink("f", top / "a/d/link");
    EXPECT_EQ(found(top, LOCATE_LIBRARY, "link"), "a/d/link");
    for (const char* name : {"folder", "../f", "./f", "", "missing"}) {
        EXPECT_EQ(found(top, LOCATE_LIBRARY, name), "") << name;
    }
    EXPECT_EQ(found(top, LOCATE_LIBRARY, (top / "a/f").c_str()), "");
    EXPECT_EQ(found(top, LOCATE_LIBRARY, nullptr), "");
}

TEST(Locate, the_search_starts_beside_the_own_file_wherever_the_process_is) {
    const fs::path self = fs::read_symlink("/proc/self/exe");
    ScratchFolder scratch;
    const fs::path before = fs::current_path();
    fs::current_path(scratch.file(""));
    touch(scratch.file("only-here"));
    char path[LOCATE_MAX_PATH];
    EXPECT_TRUE(ut_locate_file(LOCATE_LIBRARY, self.filename().c_str(), path, sizeof path));
    EXPECT_EQ(path, self);
    EXPECT_FALSE(ut_locate_file(LOCATE_LIBRARY, "only-here", path, sizeof path));
    fs::current_path(before);
    const size_t length = self.string().size();
    EXPECT_TRUE(ut_locate_file(LOCATE_LIBRARY, self.filename().c_str(), path, length + 1));
    EXPECT_FALSE(ut_locate_file(LOCATE_LIBRARY, self.filename().c_str(), path, length));
    EXPECT_STREQ(path, "");
}
