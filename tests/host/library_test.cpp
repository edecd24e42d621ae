#include "host/library.h"

#include <cstdlib>

#include <gmock/gmock.h>

#include "host/librarypath.h"
#include "host/procedures.h"

using namespace host;
using testing::HasSubstr;

namespace {

TEST(Library, names_the_file_the_reason_and_the_remedy) {
    const std::pair<const char*, const char*> rows[] = {
        {"/nowhere/lib.so",
         "cannot load /nowhere/lib.so: cannot open shared object file: No such file or directory; "
         "do this"},
        {"libc.so.6", "cannot load ./libc.so.6: "},
        {OLD_FAKE_LIBRARY, "speaks version 1 of the calling interface and this host version 2"},
        {LACKING_FAKE_LIBRARY, "is not a procedure library: it lacks extfn_cancel"},
    };
    for (const auto& [path, said] : rows) {
        std::string error;
        EXPECT_FALSE(Library::load(path, error, "do this").loaded());
        EXPECT_THAT(error, HasSubstr(said));
    }
}

TEST(Library, is_found_through_the_environment_or_beside_the_host) {
    setenv("QUOREL_LIBRARY", "/somewhere/else.so", 1);
    EXPECT_EQ("/somewhere/else.so", default_library_path());
    setenv("QUOREL_LIBRARY", "", 1);
    // This test lies two folders below the build tree's root, as do the tools, so it finds the
    // library where they do.
    EXPECT_THAT(default_library_path(), HasSubstr("/extdll/libquorel_static.so"));
    std::string error;
    const Library library = Library::load({}, error);
    ASSERT_TRUE(library.loaded()) << error;
    EXPECT_EQ(nullptr, library.procedure("xp_nothing"));
}

TEST(Procedure, numbers_and_names_its_parameters) {
    const Procedure& format = *find_procedure("XP_sprintf");
    EXPECT_EQ("value50", format.parameter_name(format.parameter_count()));
    EXPECT_EQ(2U, format.parameter_number("FORMAT"));
    EXPECT_EQ(52U, format.parameter_number("Value50"));
    for (const char* name : {"value", "value01", "value51", "value1x", "value99999999999"})
        EXPECT_EQ(0U, format.parameter_number(name)) << name;
}

}  // namespace
