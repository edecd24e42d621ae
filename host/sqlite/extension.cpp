// The loadable extension: `.load ./quorel_sqlite` in the sqlite3 program, load_extension()
// elsewhere.

#include <memory>
#include <string>

#include <sqlite3ext.h>

#include "host/sqlite/functions.h"
#include "host/sqlite/workerfunctions.h"

SQLITE_EXTENSION_INIT1

namespace {

// SQLITE_DIRECTONLY for virtual tables came with this version; older ones would take no notice.
constexpr int oldest_sqlite = 3031000;

int initialise(sqlite3* db, std::string& error) {
    if (sqlite3_libversion_number() < oldest_sqlite) {
        error = "quorel_sqlite needs SQLite 3.31 or later, this is " +
                std::string(sqlite3_libversion());
        return SQLITE_ERROR;
    }
    const auto connection =
        std::make_shared<host::SqlConnection>(nullptr, quorel_sqlite_next_connection());
    const host::Place place = host::wanted_place(host::Place::InProcess);
    if (!host::move_to(place, *connection, error)) return SQLITE_ERROR;
    int code = host::register_functions(db, connection);
    if (code == SQLITE_OK) code = host::register_worker_functions(db, connection);
    if (code != SQLITE_OK) error = sqlite3_errmsg(db);
    // Permanently: a connection may close while another one's command still runs in here.
    return code == SQLITE_OK ? SQLITE_OK_LOAD_PERMANENTLY : code;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int
sqlite3_extension_init(sqlite3* db, char** message, const sqlite3_api_routines* routines) {
    SQLITE_EXTENSION_INIT2(routines);
    std::string error;
    const int code = initialise(db, error);
    if (!error.empty() && message != nullptr) *message = sqlite3_mprintf("%s", error.c_str());
    return code;
}

/// The name that SQLite makes of this file's: the letters between "lib", if there, and the first
/// dot.
__attribute__((visibility("default"))) int
sqlite3_quorelsqlite_init(sqlite3* db, char** message, const sqlite3_api_routines* routines) {
    return sqlite3_extension_init(db, message, routines);
}
}
