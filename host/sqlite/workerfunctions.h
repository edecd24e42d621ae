#ifndef QUOREL_HOST_SQLITE_WORKERFUNCTIONS_H
#define QUOREL_HOST_SQLITE_WORKERFUNCTIONS_H

/// Where the procedures of a connection run, as SQL sees it.

#include "host/sqlite/sqlfunction.h"
#include "host/worker/openengine.h"

namespace host {

/// Has the connection's procedures run there from now on. An open mail session is stopped first,
/// which stays where it is. False with a sentence in `error` when nothing was changed.
bool move_to(Place place, SqlConnection& connection, std::string& error);

/// Gives `db`, whose connection this is, two functions:
///
///  - quorel_worker(on) moves the procedures into a worker, or out of it; without an argument it
///    changes nothing. It gives 1 when they run in a worker, otherwise 0.
///  - quorel_deadline(seconds) ends each later call that takes longer; 0 or NULL: none does. It
///    gives the seconds, and an error where the procedures do not run in a worker.
///
/// A schema calls neither: see schemaguard.h.
///
/// Returns SQLITE_OK or SQLite's error code.
int register_worker_functions(sqlite3* db, const std::shared_ptr<SqlConnection>& connection);

}  // namespace host

#endif
