#ifndef QUOREL_HOST_CHECKEDARGUMENTS_H
#define QUOREL_HOST_CHECKEDARGUMENTS_H

/// What a caller gives a procedure, held against the procedure's declaration and its rules.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/callarguments.h"
#include "host/procedures.h"
#include "host/value.h"

namespace host {

/// Each function that can refuse returns false then, with a sentence in `error` that says what to
/// do.
class CheckedArguments {
  public:
    /// `procedure` is not owned and outlives the object. Every parameter starts as its `absent`
    /// rule says; `connection` is what one with Absent::Connection receives.
    CheckedArguments(const Procedure& procedure, std::int32_t connection);

    /// As CallFrame::set_argument() and CallFrame::lend_argument().
    bool set(std::uint32_t number, Value value, std::string& error);
    bool lend(std::uint32_t number, std::string_view bytes, std::string& error);

    /// For when all are given: whether nothing is missing and they go together. Completes those
    /// that the procedure's rules complete, and may leave a sentence in `warning`.
    bool finish(std::string& warning, std::string& error);

    [[nodiscard]] const CallArguments& given() const { return _arguments; }
    /// As CallFrame::connection().
    [[nodiscard]] std::optional<std::int32_t> connection() const;

  private:
    [[nodiscard]] bool _takes(std::uint32_t number, std::string_view bytes,
                              std::string& error) const;
    [[nodiscard]] bool _set_null(std::uint32_t number, std::string& error);
    [[nodiscard]] bool _set_number(std::uint32_t number, const Value& value, std::string& error);
    [[nodiscard]] bool _are_complete(std::string& error) const;
    [[nodiscard]] bool _are_without_gap(std::string& error) const;
    [[nodiscard]] bool _have_what_they_need(std::string& error) const;
    [[nodiscard]] bool _pass_guard(std::string& warning, std::string& error);

    const Procedure& _procedure;
    CallArguments _arguments;  // OUT parameters stay NULL
};

}  // namespace host

#endif
