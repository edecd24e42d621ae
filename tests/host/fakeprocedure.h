#ifndef QUOREL_TESTS_HOST_FAKEPROCEDURE_H
#define QUOREL_TESTS_HOST_FAKEPROCEDURE_H

#include <gtest/gtest.h>

#include "host/callframe.h"
#include "host/library.h"

/// The declaration of one of fakelib's procedures.
struct FakeProcedure : host::Procedure {
    FakeProcedure(std::string_view its_name, host::Absent absent, a_sql_data_type type)
        : Procedure{.name = its_name, .summary = "", .parameters = rows, .otherwise = ""},
          rows{{"value", host::Direction::In, type, absent, "a value"},
               {"text", host::Direction::Out, EXTFN_TYPE_STRING, host::Absent::Null, ""}} {}
    FakeProcedure(const FakeProcedure&) = delete;

    host::Parameter rows[2];
};

inline const host::Library& fake_library() {
    static std::string error;
    static const host::Library library = host::Library::load(FAKE_LIBRARY, error);
    EXPECT_EQ("", error);
    return library;
}

#endif
