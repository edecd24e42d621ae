#ifndef QUOREL_EXTDLL_FORMATSCANNER_H
#define QUOREL_EXTDLL_FORMATSCANNER_H

/// The parts that formats for printing and for scanning share: flags, numbers and positions.

#include <algorithm>
#include <string_view>

#include "utils/etc/utascii.h"
#include "utils/etc/uttypes.h"

/// Largest number that a format's fields are read as; larger ones stop here. It is beyond every
/// buffer of the format procedures, so that clamping changes no result.
constexpr int largest_format_number = 65535;

/// Takes the characters of `set` off the front of `rest`; returns those taken.
inline std::string_view take_any_of(std::string_view& rest, std::string_view set) {
    const std::string_view taken =
        rest.substr(0, std::min(rest.find_first_not_of(set), rest.size()));
    rest.remove_prefix(taken.size());
    return taken;
}

/// Takes a decimal number off the front of `rest`; 0 when there are no digits.
inline int take_number(std::string_view& rest) {
    int number = 0;
    for (const char digit : take_any_of(rest, "0123456789")) {
        number = std::min(number * 10 + (digit - '0'), largest_format_number);
    }
    return number;
}

/// Takes `c` off the front of `rest`, if it is there.
inline a_bool take_char(std::string_view& rest, char c) {
    if (rest.empty() || rest.front() != c) return false;
    rest.remove_prefix(1);
    return true;
}

/// Takes a position ("7$") off the front of `rest` and stores its number. False, with `rest`
/// unchanged, when there is none.
inline a_bool take_position(std::string_view& rest, int* position) {
    std::string_view ahead = rest;
    if (ahead.empty() || !ut_is_digit(ahead.front())) return false;
    const int number = take_number(ahead);
    if (!take_char(ahead, '$')) return false;
    *position = number;
    rest = ahead;
    return true;
}

#endif
