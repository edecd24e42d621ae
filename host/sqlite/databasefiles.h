#ifndef QUOREL_HOST_SQLITE_DATABASEFILES_H
#define QUOREL_HOST_SQLITE_DATABASEFILES_H

/// Keeps the procedures away from the files of the database that calls them.

#include <string>

#include "host/sqlite/sqliteapi.h"

namespace host {

/// True when `file` is, under whatever name, a file that `db` has open: the main or an attached
/// database, or its journal, write-ahead log or shared memory. POSIX drops all of a process's locks
/// on a file when the process closes any descriptor of it, so reading such a file is enough to
/// expose the database to writers that overwrite each other.
///
/// Sets `found` and returns SQLITE_OK, or SQLite's error code when it will not tell its files.
int is_open_database(sqlite3* db, const std::string& file, bool& found);

}  // namespace host

#endif
