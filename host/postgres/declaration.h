#ifndef QUOREL_HOST_POSTGRES_DECLARATION_H
#define QUOREL_HOST_POSTGRES_DECLARATION_H

/// How a procedure is declared in SQL. The script that declares it and the module that is called go
/// by the same answers.

#include <cstdint>
#include <string>
#include <vector>

#include "host/postgres/bridge.h"
#include "host/procedures.h"

namespace host {

/// The parameters that an SQL caller gives, in order: all IN parameters but the connection's
/// number, which is the backend's. The last may stand for those that repeat it.
[[nodiscard]] std::vector<std::uint32_t> sql_arguments(const Procedure& procedure);

/// True where the parameter is the first of those that repeat a row.
[[nodiscard]] bool is_repeated(const Procedure& procedure, std::uint32_t number);

[[nodiscard]] QuorelType argument_type(const Procedure& procedure, std::uint32_t number);
[[nodiscard]] QuorelType result_type(const Procedure& procedure);

/// The number of the only OUT parameter, or of the first of those that repeat it; 0: none.
[[nodiscard]] std::uint32_t first_out(const Procedure& procedure);

/// The extension's script.
[[nodiscard]] std::string sql_script();

/// C for entries.c: the functions that the script names.
[[nodiscard]] std::string entry_points();

}  // namespace host

#endif
