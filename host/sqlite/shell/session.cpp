#include "host/sqlite/shell/session.h"

#include "host/displaytext.h"
#include "host/librarypath.h"
#include "host/sqlite/functions.h"

namespace host {

Session::~Session() {
    sqlite3_close(db);
}

bool Session::open(const std::string& database, const std::string& library_path, Place place,
                   std::string& error) {
    engine = open_engine(place, library_path, library_remedy, error);
    if (engine == nullptr) return false;

    int code = sqlite3_open(database.c_str(), &db);
    // The file itself is read here first; what it says must not decide how it is treated.
    if (code == SQLITE_OK) code = sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    if (code == SQLITE_OK) code = sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_exec(db, "PRAGMA schema_version", nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        error = display_text("cannot open the database " + database + ": " + sqlite3_errmsg(db));
        return false;
    }
    connection = quorel_sqlite_next_connection();
    const auto show = [this](std::uint64_t moved) { progress.moved(moved); };
    if (quorel_sqlite_register(db, engine, connection, show) == SQLITE_OK) return true;
    error = std::string("cannot register the procedures: ") + sqlite3_errmsg(db);
    return false;
}

}  // namespace host
