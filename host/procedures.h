#ifndef QUOREL_HOST_PROCEDURES_H
#define QUOREL_HOST_PROCEDURES_H

/// The procedures that the library exports: one row each. Every host takes names, parameter order,
/// types and defaults from here, so a new procedure joins all hosts by one row in procedures.cpp.

#include <span>
#include <string_view>

#include "host/procedure.h"

namespace host {

/// All procedures, in the order of the documentation.
[[nodiscard]] std::span<const Procedure> procedures();

/// The procedure called `name`, case ignored; null when there is none.
[[nodiscard]] const Procedure* find_procedure(std::string_view name);

}  // namespace host

#endif
