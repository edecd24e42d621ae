#include "utils/unix/locate.h"

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/scratch.h"

namespace {

namespace fs = std::filesystem;

/// A folder `top`, and what is found from top/a/d, as a path below top; empty for nothing.
struct Tree {
    Tree() { fs::create_directories(top / "a/d/folder"); }
    void touch(const fs::path& file) const {
        fs::create_directories((top / file).parent_path());
        std::ofstream(top / file) << "x";
    }
    std::string found(a_locate_kind kind, const char* name) const {
        char path[LOCATE_MAX_PATH];
        const bool is_found =
            ut_locate_file_from((top / "a/d").c_str(), kind, name, path, sizeof path);
        return is_found ? fs::path(path).lexically_normal().lexically_relative(top).string() : "";
    }
    ScratchFolder scratch;
    const fs::path top = scratch.file("");
};

}  // namespace

TEST(Locate, directories_are_searched_in_their_order) {
    const std::pair<a_locate_kind, std::vector<std::string>> rows[] = {
        {LOCATE_LIBRARY, {"a/lib/f", "a/lib/quorel/f", "a/d/f"}},
        {LOCATE_RESOURCE, {"share/quorel/f", "a/share/quorel/f", "a/d/f"}},
    };
    for (const auto& [kind, places] : rows) {
        const Tree tree;
        tree.touch("a/f");
        EXPECT_EQ("", tree.found(kind, "f"));
        for (const std::string& place : places) {
            tree.touch(place);
            EXPECT_EQ(place, tree.found(kind, "f"));
        }
    }
}

TEST(Locate, only_regular_files_with_bare_names_are_found) {
    const Tree tree;
    tree.touch("a/f");
    const std::string path = tree.top / "a/f";
    for (const char* name : {"folder", "../f", "", path.c_str()})
        EXPECT_EQ("", tree.found(LOCATE_LIBRARY, name)) << name;
}

TEST(Locate, the_search_starts_beside_the_own_file_wherever_the_process_is) {
    const fs::path self = fs::read_symlink("/proc/self/exe"), before = fs::current_path();
    const Tree tree;
    fs::current_path(tree.top);
    tree.touch("only-here");
    char path[LOCATE_MAX_PATH];
    const size_t length = self.string().size();
    EXPECT_TRUE(ut_locate_file(LOCATE_LIBRARY, self.filename().c_str(), path, length + 1));
    EXPECT_EQ(self, path);
    EXPECT_FALSE(ut_locate_file(LOCATE_LIBRARY, self.filename().c_str(), path, length));
    EXPECT_FALSE(ut_locate_file(LOCATE_LIBRARY, "only-here", path, sizeof path));
    fs::current_path(before);
}

// The test before this one, in a copy of this program.
TEST(Locate, the_folder_of_the_own_file_may_have_any_name) {
    const ScratchFolder scratch;
    for (const char* name : {"a b", "line\nend", "back\\012slash", "x (deleted)", "\xFF'\"$"}) {
        fs::create_directory(scratch.file(name));
        const std::string copy = scratch.file(name) + "/copy";
        fs::copy_file("/proc/self/exe", copy);
        const pid_t child = fork();
        if (child == 0) {
            execl(copy.c_str(), copy.c_str(), "--gtest_filter=*wherever_the_process_is", nullptr);
            _exit(127);
        }
        int ended = -1;
        waitpid(child, &ended, 0);
        EXPECT_EQ(0, ended) << name;
    }
}
