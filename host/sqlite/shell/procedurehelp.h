#ifndef QUOREL_HOST_SQLITE_SHELL_PROCEDUREHELP_H
#define QUOREL_HOST_SQLITE_SHELL_PROCEDUREHELP_H

/// What a person is told about the procedures.

#include <string>
#include <string_view>

#include "host/procedures.h"

namespace host {

/// A procedure with its parameters, their types and defaults: a few lines.
[[nodiscard]] std::string describe_procedure(const Procedure& procedure);

/// Its parameters' names on one line: "format, value1 … value50".
[[nodiscard]] std::string parameter_list(const Procedure& procedure);

}  // namespace host

#endif
