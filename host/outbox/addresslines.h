#ifndef QUOREL_HOST_OUTBOX_ADDRESSLINES_H
#define QUOREL_HOST_OUTBOX_ADDRESSLINES_H

#include <string>
#include <string_view>
#include <vector>

namespace host::outbox {

/// How a delivery's recipients stand in its row: one a line.
[[nodiscard]] std::string join_lines(const std::vector<std::string>& addresses);
[[nodiscard]] std::vector<std::string> split_lines(std::string_view text);

}  // namespace host::outbox

#endif
