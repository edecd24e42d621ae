#ifndef QUOREL_HOST_NEARESTNAME_H
#define QUOREL_HOST_NEARESTNAME_H

/// What to tell a person who mistyped a procedure's name.

#include <string>
#include <string_view>

namespace host {

/// "there is no procedure xp_raed_file; did you mean xp_read_file?", or without the question where
/// no name is like it.
[[nodiscard]] std::string unknown_procedure(std::string_view name);

}  // namespace host

#endif
