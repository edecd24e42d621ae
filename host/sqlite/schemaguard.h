#ifndef QUOREL_HOST_SQLITE_SCHEMAGUARD_H
#define QUOREL_HOST_SQLITE_SCHEMAGUARD_H

/// Keeps the SQL that stands in a database file away from the procedures, and from what says where
/// they run.

#include <string>
#include <string_view>

#include "host/sqlite/sqliteapi.h"

namespace host {

/// Called by an SQL function or table before it does anything: is it the running statement, as the
/// program gave it to SQLite, that calls `name`?
///
/// A database's schema is SQL as well, written by whoever made the file. SQLITE_DIRECTONLY makes
/// SQLite refuse calls in views and triggers, but not in CHECK constraints, nor in generated
/// columns and index expressions that were read before the function was registered. Therefore a
/// call passes only where all of this holds:
///
///  1. One statement is running. In a second one the text may be data of a file, composed by a
///     function such as sha3_query that runs what it is given.
///  2. That statement's text holds the name.
///  3. No object of an attached database, TEMP included, holds the name in its SQL. A name has one
///     spelling there but for the case of letters: SQL has no escapes in identifiers.
///  4. The same text with the name exchanged compiles to a program without a call of it. The schema
///     in memory, which is what runs, may differ from what can be read of the file by now.
///
/// SQLITE_OK; SQLITE_ERROR with a sentence in `error` that names what stands in the way and what to
/// do; or another error code. A question that SQLite does not answer (a locked or damaged file, an
/// authorizer) refuses the call.
///
/// What holds for one call holds for all of the same run of a statement, whose program stays what
/// it is. The cost is that of preparing the statement again and of reading all schemas.
int check_direct_call(sqlite3* db, std::string_view name, std::string& error);

/// The same for a table, which no program names and SQLite itself keeps out of every schema but
/// TEMP: 1 to 3.
int check_direct_table(sqlite3* db, std::string_view name, std::string& error);

/// Makes the function known that 4. exchanges the name for: xp_stand_in, which does nothing. For
/// every connection before it asks. SQLITE_OK or SQLite's error code.
int register_stand_in(sqlite3* db);

}  // namespace host

#endif
