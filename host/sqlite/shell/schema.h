#ifndef QUOREL_HOST_SQLITE_SHELL_SCHEMA_H
#define QUOREL_HOST_SQLITE_SHELL_SCHEMA_H

/// What the open databases hold.

#include <string>
#include <string_view>

#include "host/sqlite/shell/session.h"

namespace host {

/// Prints the names of the tables and views that are LIKE `pattern`, each on a line, those of an
/// attached database behind its name; all of them where `pattern` is empty. False with a sentence
/// in `error`.
bool print_tables(const Session& session, std::string_view pattern, std::string& error);

/// The same for the statements that made them, with their indexes and triggers.
bool print_schema(const Session& session, std::string_view pattern, std::string& error);

}  // namespace host

#endif
