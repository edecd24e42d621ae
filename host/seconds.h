#ifndef QUOREL_HOST_SECONDS_H
#define QUOREL_HOST_SECONDS_H

#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>

#include "host/text.h"

namespace host {

/// A deadline as people give it, a number of seconds with or without a fraction, rounded up to
/// milliseconds; zero: none. Nothing for what is no such number.
[[nodiscard]] inline std::optional<std::chrono::milliseconds> as_deadline(double seconds) {
    constexpr double longest = 1e9;
    constexpr double milliseconds = 1000;
    if (!(seconds >= 0 && seconds <= longest)) return std::nullopt;
    return std::chrono::milliseconds(std::llround(std::ceil(seconds * milliseconds)));
}

[[nodiscard]] inline std::optional<std::chrono::milliseconds>
parse_deadline(std::string_view text) {
    const std::optional<double> seconds = parse_number<double>(text);
    return seconds ? as_deadline(*seconds) : std::nullopt;
}

}  // namespace host

#endif
