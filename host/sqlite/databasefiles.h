#ifndef QUOREL_HOST_SQLITE_DATABASEFILES_H
#define QUOREL_HOST_SQLITE_DATABASEFILES_H

/// Keeps the procedures away from the files of open databases.

#include <string>

#include "host/sqlite/sqliteapi.h"

namespace host {

/// True when `file` is, under whatever name and whether it exists yet or not, a database that is
/// open, or its journal, write-ahead log or shared memory: one of `db`, or of any other connection
/// in this process. POSIX drops all of a process's locks on a file when the process closes any
/// descriptor of it, so reading such a file is enough to expose the database to writers that
/// overwrite each other.
///
/// Other connections are known by their descriptors: every regular file that this process has open
/// for reading and writing counts, and one open for reading alone that begins as a database does.
/// Where /proc is not mounted, only `db` counts.
///
/// Sets `found` and returns SQLITE_OK, or an error code of SQLite's when it cannot be told.
int is_open_database(sqlite3* db, const std::string& file, bool& found);

}  // namespace host

#endif
