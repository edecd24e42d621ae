#ifndef QUOREL_TESTS_HOST_FAKECALL_H
#define QUOREL_TESTS_HOST_FAKECALL_H

#include <gtest/gtest.h>

#include "host/callframe.h"
#include "host/library.h"

inline const host::Library& fake_library() {
    static std::string error;
    static const host::Library library = host::Library::load(FAKE_LIBRARY, error);
    EXPECT_EQ("", error);
    return library;
}

/// A call of fakelib's procedure `fake` as if it were `declared` so.
class FakeCall {
  public:
    static constexpr std::int32_t connection = 42;

    FakeCall(const char* fake, const host::Procedure& declared,
             std::uint32_t piece = host::CallFrame::default_piece)
        : _procedure(declared), frame(fake_library(), _procedure, connection, piece) {
        _procedure.name = fake;
    }

    bool set(const std::string& parameter, const std::string& text) {
        return frame.set_argument(_procedure.parameter_number(parameter),
                                  host::Value::text(text, EXTFN_TYPE_STRING), error);
    }
    /// As an SQL function does: `bytes` stays readable until the call is over.
    bool lend(const std::string& parameter, std::string_view bytes) {
        return frame.lend_argument(_procedure.parameter_number(parameter), bytes, error);
    }
    /// The error's sentence; empty when there is none.
    std::string run() {
        error.clear();
        frame.call(error);
        return error;
    }
    std::int32_t status() {
        EXPECT_EQ("", run());
        return frame.result()->as_int().value_or(-1);
    }

    std::string error;  ///< of the last that failed

  private:
    host::Procedure _procedure;

  public:
    host::CallFrame frame;
};

#endif
