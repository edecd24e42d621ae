#include "host/procedure.h"

#include <algorithm>

#include "host/text.h"

namespace host {

namespace {

// The number at the end of "value7", given "7": 1 … limit, written without leading zeros; else 0.
std::uint32_t repeat_index(std::string_view digits, std::uint32_t limit) {
    const std::uint32_t index = parse_number<std::uint32_t>(digits).value_or(0);
    return index <= limit && digits.front() != '0' ? index : 0;
}

}  // namespace

std::uint32_t Procedure::parameter_count() const {
    const auto rows = static_cast<std::uint32_t>(parameters.size());
    return repeats == 0 ? rows : rows - 1 + repeats;
}

// Every number behind the last row is one of those that it repeats for.
const Parameter& Procedure::parameter(std::uint32_t number) const {
    return parameters[std::min<std::size_t>(number, parameters.size()) - 1];
}

std::string Procedure::parameter_name(std::uint32_t number) const {
    std::string text(parameter(number).name);
    if (repeats != 0 && number >= parameters.size())
        text += std::to_string(number - parameters.size() + 1);
    return text;
}

std::string Procedure::describe(std::uint32_t number) const {
    std::string text(name);
    return text.append(": parameter ")
        .append(std::to_string(number))
        .append(" (")
        .append(parameter_name(number))
        .append(") ");
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

bool Procedure::moves_bytes() const {
    return result == Result::Bytes ||
           std::any_of(parameters.begin(), parameters.end(), [](const Parameter& parameter) {
               return parameter.direction == Direction::In && parameter.type == EXTFN_TYPE_BINARY;
           });
}

std::string_view Procedure::explain(std::int32_t status) const {
    for (const StatusMeaning& known : statuses)
        if (known.status == status) return known.meaning;
    return otherwise;
}

}  // namespace host
