#ifndef QUOREL_HOST_PROCEDURE_H
#define QUOREL_HOST_PROCEDURE_H

/// What a host knows of a procedure: its SQL declaration, the rules that its arguments keep, and
/// what its results mean.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "extdll/extfn.h"
#include "host/content.h"
#include "host/filecheck.h"
#include "host/mailguards.h"

namespace host {

enum class Direction { In, Out };

/// What a host passes for a parameter that the caller leaves out.
enum class Absent {
    Refuse,     ///< the caller must give it
    Null,       ///< SQL NULL
    Connection  ///< the number of the calling SQL connection
};

/// What a procedure does with a file that a parameter names.
enum class FileUse { None, Reads, Writes };

// The fields stand in the order in which a row reads.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct Parameter {
    std::string_view name;
    Direction direction;
    a_sql_data_type type;
    Absent absent;
    std::string_view meaning;  ///< a few words for help texts
    Content content = Content::Text;
    FileUse file = FileUse::None;  ///< not None: the value is a file's name, which is opened

    /// True where a caller may give the value by its place among the others. The connection's
    /// number is given by name or not at all.
    [[nodiscard]] bool is_positional() const {
        return direction == Direction::In && absent != Absent::Connection;
    }
};

/// What argument 0 holds after a call.
enum class Result {
    None,    ///< nothing that means anything; the values are OUT parameters, if there are any
    Status,  ///< an int32, 0 for success
    Bytes    ///< a binary value, or NULL for failure; left unset, it is an empty value
};

/// What a call reaches outside of the database, by which a server decides who may make it.
enum class Reach { Nothing, FilesToRead, FilesToWrite, Commands, Mail };

/// One status in words, for people.
struct StatusMeaning {
    std::int32_t status;
    std::string_view meaning;
};

/// A parameter that means nothing to the procedure unless another one is given too.
struct Need {
    std::uint32_t parameter;
    std::uint32_t other;
};

// The fields stand in the order in which a row reads.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct Procedure {
    std::string_view name;
    std::string_view summary;  ///< one line, what it does
    Reach reach = Reach::Nothing;
    Result result = Result::None;

    /// The parameters by number, from 1. Where `repeats` is not 0, the last row stands for that
    /// many parameters, named by the row's name followed by 1, 2, …
    std::span<const Parameter> parameters = {};
    std::uint32_t repeats = 0;

    /// The rules beyond those of single parameters.
    std::span<const Need> needs = {};
    Guard guard = nullptr;  ///< null: none
    FileRule file = {};

    /// True for a call that may run long and registers a cancellation record.
    bool cancellable = false;

    /// The words of explain(): those of single statuses, and those of all others. For a
    /// procedure without a status `otherwise` says what it means that nothing, or NULL, came back.
    std::span<const StatusMeaning> statuses = {};
    std::string_view otherwise;

    /// True when it carries a file's contents in or out.
    [[nodiscard]] bool moves_bytes() const;
    /// Number of parameters, repeated ones counted.
    [[nodiscard]] std::uint32_t parameter_count() const;
    /// Row that declares parameter `number` (1 … parameter_count()).
    [[nodiscard]] const Parameter& parameter(std::uint32_t number) const;
    [[nodiscard]] bool is_out(std::uint32_t number) const {
        return parameter(number).direction == Direction::Out;
    }
    /// What an error about parameter `number` begins with: "xp_startsmtp: parameter 2 (host) ".
    [[nodiscard]] std::string describe(std::uint32_t number) const;
    /// The name of parameter `number`: its row's, with 1, 2, … added in a repeated row.
    [[nodiscard]] std::string parameter_name(std::uint32_t number) const;
    /// Number of the parameter called `name` (case ignored, "value7" for a repeated row), 0 if
    /// none.
    [[nodiscard]] std::uint32_t parameter_number(std::string_view name) const;
    /// One of its statuses in words ("the session is open"), for people. Never empty.
    [[nodiscard]] std::string_view explain(std::int32_t status) const;
};

}  // namespace host

#endif
