#ifndef QUOREL_HOST_SQLITE_SQLITEAPI_H
#define QUOREL_HOST_SQLITE_SQLITEAPI_H

/// SQLite's interface for code that is compiled twice: into the loadable extension, where each call
/// goes through the table that SQLite hands to the extension, and, with SQLITE_CORE defined, into a
/// program that links SQLite itself.

#include <sqlite3ext.h>

SQLITE_EXTENSION_INIT3

#endif
