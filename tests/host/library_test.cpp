#include "host/library.h"

#include <cstdlib>

#include <gmock/gmock.h>

#include "host/librarypath.h"
#include "host/procedures.h"

using namespace host;
using testing::HasSubstr;

namespace {

TEST(Library, names_the_file_the_reason_and_the_remedy) {
    struct Row {
        const char* path;
        const char* said;
    };
    for (const Row& row : {
             Row{"/nowhere/lib.so",
                 "cannot load /nowhere/lib.so: cannot open shared object file: No "
                 "such file or directory; do this"},
             {"nowhere.so", "cannot load ./nowhere.so: "},
             {"/etc/passwd", "cannot load /etc/passwd: "},
             {"libc.so.6", "cannot load ./libc.so.6: "},
             {OLD_FAKE_LIBRARY,
              "speaks version 1 of the calling interface and this host version 2"},
             {LACKING_FAKE_LIBRARY, "is not a procedure library: it lacks extfn_cancel"},
         }) {
        std::string error;
        EXPECT_FALSE(Library::load(row.path, error, "do this").loaded());
        EXPECT_THAT(error, HasSubstr(row.said));
    }
}

TEST(Library, is_found_through_the_environment_or_beside_the_host) {
    setenv("QUOREL_LIBRARY", "/somewhere/else.so", 1);
    EXPECT_EQ(default_library_path(), "/somewhere/else.so");
    setenv("QUOREL_LIBRARY", "", 1);
    // This test lies two folders below the build tree's root, as do the tools, so it finds the
    // library where they do.
    EXPECT_THAT(default_library_path(), HasSubstr("/extdll/libquorel_static.so"));
    std::string error;
    const Library library = Library::load({}, error);
    ASSERT_TRUE(library.loaded()) << error;
    EXPECT_EQ(library.procedure("xp_nothing"), nullptr);
}

TEST(Procedure, numbers_and_names_its_parameters) {
    const Procedure& format = *find_procedure("XP_sprintf");
    EXPECT_EQ(format.parameter_count(), 52U);
    EXPECT_EQ(format.parameter_name(2), "format");
    EXPECT_EQ(format.parameter_name(52), "value50");
    EXPECT_EQ(format.parameter(52).direction, Direction::In);
    struct Row {
        const char* name;
        std::uint32_t number;
    };
    for (const Row& row : {Row{"text", 1},
                           {"FORMAT", 2},
                           {"value1", 3},
                           {"Value50", 52},
                           {"value", 0},
                           {"value0", 0},
                           {"value01", 0},
                           {"value51", 0},
                           {"value1x", 0},
                           {"", 0},
                           {"value99999999999", 0}})
        EXPECT_EQ(format.parameter_number(row.name), row.number) << row.name;
    EXPECT_EQ(find_procedure("xp_cmdshell")->parameter_number("output"), 2U);
    EXPECT_EQ(find_procedure("xp_cmdshell")->parameter_number("output1"), 0U);
    EXPECT_EQ(find_procedure("xp_nothing"), nullptr);
}

}  // namespace
