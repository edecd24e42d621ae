#include "host/procedures.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace host {

namespace {

using enum Direction;
using enum Absent;

// How many values the format procedures take or give.
constexpr std::uint32_t format_values = 50;

constexpr Parameter read_file_parameters[] = {
    {"name", In, EXTFN_TYPE_STRING, Refuse, "the file to read"},
};

constexpr Parameter write_file_parameters[] = {
    {"name", In, EXTFN_TYPE_STRING, Refuse, "the file to write"},
    {"contents", In, EXTFN_TYPE_BINARY, Refuse, "the bytes to write, one at least"},
};

// xp_sprintf asks for every value up to the first NULL one and fails where a number does not exist,
// so all of them are declared and a host passes NULL for those that are left out.
constexpr Parameter sprintf_parameters[] = {
    {"text", Out, EXTFN_TYPE_STRING, Null, "the formatted text, 254 bytes at most"},
    {"format", In, EXTFN_TYPE_STRING, Refuse, "a printf format with %s conversions"},
    {"value", In, EXTFN_TYPE_STRING, Null, "a value for the format; the first NULL ends them"},
};

constexpr Parameter scanf_parameters[] = {
    {"input", In, EXTFN_TYPE_STRING, Refuse, "the text to take apart"},
    {"format", In, EXTFN_TYPE_STRING, Refuse, "a scanf format with %s, %c and %[…] conversions"},
    {"value", Out, EXTFN_TYPE_STRING, Null, "what a conversion stored, 254 bytes at most"},
};

constexpr Parameter cmdshell_parameters[] = {
    {"command", In, EXTFN_TYPE_STRING, Refuse, "the command for /bin/sh, 8000 bytes at most"},
    {"output", In, EXTFN_TYPE_STRING, Null, "an output option, read and not used"},
};

constexpr StatusMeaning write_file_statuses[] = {
    {0, "the whole value was written"},
    {1, "not written: the file cannot be opened, the contents are empty, or a value is NULL"},
};

constexpr StatusMeaning cmdshell_statuses[] = {
    {0, "the command succeeded"},
    {1, "the command ended with exit status 1, or it is NULL or longer than 8000 bytes"},
    {2, "the command ended with exit status 2, was killed, or could not be started"},
    {126, "the command ended with exit status 126: found, but it cannot be executed"},
    {127, "the command ended with exit status 127: not found"},
};

constexpr Procedure table[] = {
    {.name = "xp_read_file",
     .summary = "reads a whole file of this machine; NULL when it cannot be read",
     .result = Result::Bytes,
     .parameters = read_file_parameters,
     .otherwise = "it cannot be opened or read, or its name is NULL"},
    {.name = "xp_write_file",
     .summary = "writes a value into a file of this machine, which then holds nothing else",
     .result = Result::Status,
     .parameters = write_file_parameters,
     .statuses = write_file_statuses,
     .otherwise = "an unknown status"},
    {.name = "xp_sprintf",
     .summary = "formats text values as printf does",
     .parameters = sprintf_parameters,
     .repeats = format_values,
     .otherwise = "the format is NULL or asks for something other than the text values"},
    {.name = "xp_scanf",
     .summary = "takes a text apart as scanf does; a value that was not filled is NULL",
     .parameters = scanf_parameters,
     .repeats = format_values,
     .otherwise = "the input does not match the format, or one of them is NULL"},
    {.name = "xp_cmdshell",
     .summary = "runs a command with /bin/sh, waits for it and gives its exit status",
     .result = Result::Status,
     .parameters = cmdshell_parameters,
     .cancellable = true,
     .statuses = cmdshell_statuses,
     .otherwise = "the command ended with this exit status"},
};

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// The number at the end of "value7", given "7": 1 … limit, written without leading zeros; else 0.
std::uint32_t repeat_index(std::string_view digits, std::uint32_t limit) {
    std::uint32_t index = 0;
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, index);
    if (parsed.ec != std::errc() || parsed.ptr != end || digits.front() == '0') return 0;
    return index <= limit ? index : 0;
}

}  // namespace

std::uint32_t Procedure::parameter_count() const {
    const auto rows = static_cast<std::uint32_t>(parameters.size());
    return repeats == 0 ? rows : rows - 1 + repeats;
}

const Parameter& Procedure::parameter(std::uint32_t number) const {
    return parameters[std::min<std::size_t>(number, parameters.size()) - 1];
}

std::string Procedure::parameter_name(std::uint32_t number) const {
    std::string text(parameter(number).name);
    if (repeats != 0 && number >= parameters.size())
        text += std::to_string(number - parameters.size() + 1);
    return text;
}

std::uint32_t Procedure::parameter_number(std::string_view wanted) const {
    const auto rows = static_cast<std::uint32_t>(parameters.size());
    const std::uint32_t plain_rows = repeats == 0 ? rows : rows - 1;
    for (std::uint32_t row = 0; row < plain_rows; ++row)
        if (same_name(parameters[row].name, wanted)) return row + 1;
    if (repeats == 0) return 0;

    const std::string_view stem = parameters.back().name;
    if (!same_name(stem, wanted.substr(0, stem.size())) || wanted.size() == stem.size()) return 0;
    const std::uint32_t index = repeat_index(wanted.substr(stem.size()), repeats);
    return index == 0 ? 0 : plain_rows + index;
}

std::span<const Procedure> procedures() {
    return table;
}

const Procedure* find_procedure(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(table), std::end(table),
                     [name](const Procedure& p) { return same_name(p.name, name); });
    return found == std::end(table) ? nullptr : found;
}

std::string_view explain_status(const Procedure& procedure, std::int32_t status) {
    for (const StatusMeaning& known : procedure.statuses)
        if (known.status == status) return known.meaning;
    return procedure.otherwise;
}

}  // namespace host
