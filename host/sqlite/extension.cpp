// The loadable extension: `.load ./quorel_sqlite` in the sqlite3 program, load_extension()
// elsewhere.

#include <mutex>
#include <string>

#include <sqlite3ext.h>

#include "host/library.h"
#include "host/sqlite/functions.h"

SQLITE_EXTENSION_INIT1

namespace {

// SQLITE_DIRECTONLY for virtual tables came with this version; older ones would take no notice.
constexpr int oldest_sqlite = 3031000;

// The library of this process, for all connections, from the first load that succeeds. It is never
// unloaded: a connection on another thread may be inside it when the program exits.
const host::Library* shared_library(std::string& error) {
    static std::mutex mutex;
    static const host::Library* library = nullptr;
    const std::lock_guard lock(mutex);
    if (library != nullptr) return library;
    host::Library loaded = host::Library::load({}, error,
                                               "build it with tools/demo, then put it beside the "
                                               "extension or name its file in QUOREL_LIBRARY");
    if (loaded.loaded()) library = new host::Library(std::move(loaded));
    return library;
}

int initialise(sqlite3* db, std::string& error) {
    if (sqlite3_libversion_number() < oldest_sqlite) {
        error = "quorel_sqlite needs SQLite 3.31 or later, this is " +
                std::string(sqlite3_libversion());
        return SQLITE_ERROR;
    }
    const host::Library* library = shared_library(error);
    if (library == nullptr) return SQLITE_ERROR;
    const int code = quorel_sqlite_register(db, *library, quorel_sqlite_next_connection());
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
