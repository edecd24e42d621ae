#ifndef QUOREL_HOST_COMPOSE_PARAMETERS_H
#define QUOREL_HOST_COMPOSE_PARAMETERS_H

/// Values of header lines with parameters, as `text/plain; charset=utf-8` (RFC 2045, section 5.1;
/// RFC 2231).

#include <string>
#include <string_view>
#include <vector>

#include "host/compose/foldedheader.h"

namespace host {

struct Parameter {
    std::string name;   ///< a token of at most longest_parameter_name
    std::string value;  ///< UTF-8 without control characters
};

constexpr std::size_t longest_parameter_name = 32;

/// RFC 2045's token.
[[nodiscard]] bool is_token(std::string_view text);

/// A value is a token, in double quotes, or if it must be as RFC 2231 has it, in parts where it is
/// long.
void put_value(FoldedHeader& header, std::string_view value,
               const std::vector<Parameter>& parameters);

}  // namespace host

#endif
