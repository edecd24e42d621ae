#include "host/sqlite/databasefiles.h"

#include <sys/stat.h>

#include "host/sqlite/query.h"

namespace host {

namespace {

// What SQLite keeps for a database: the file itself and what lies beside it.
constexpr const char* suffixes[] = {"", "-journal", "-wal", "-shm"};

bool is_part_of(const struct stat64& file, const std::string& database) {
    for (const char* suffix : suffixes) {
        struct stat64 part {};
        if (stat64((database + suffix).c_str(), &part) != 0) continue;
        if (part.st_dev == file.st_dev && part.st_ino == file.st_ino) return true;
    }
    return false;
}

}  // namespace

int is_open_database(sqlite3* db, const std::string& file, bool& found) {
    found = false;
    struct stat64 status {};
    if (stat64(file.c_str(), &status) != 0) return SQLITE_OK;

    std::vector<AttachedDatabase> databases;
    if (const int code = list_databases(db, databases); code != SQLITE_OK) return code;
    for (const AttachedDatabase& database : databases)
        found = found || (!database.file.empty() && is_part_of(status, database.file));
    return SQLITE_OK;
}

}  // namespace host
