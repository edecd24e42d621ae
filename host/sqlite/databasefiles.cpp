#include "host/sqlite/databasefiles.h"

#include <sys/stat.h>

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

    sqlite3_stmt* databases = nullptr;
    int code = sqlite3_prepare_v2(db, "PRAGMA database_list", -1, &databases, nullptr);
    if (code != SQLITE_OK) return code;
    while (!found && (code = sqlite3_step(databases)) == SQLITE_ROW) {
        constexpr int file_column = 2;
        const auto* path =
            reinterpret_cast<const char*>(sqlite3_column_text(databases, file_column));
        // Databases in memory and temporary ones have none.
        found = path != nullptr && *path != '\0' && is_part_of(status, path);
    }
    sqlite3_finalize(databases);
    return found || code == SQLITE_DONE ? SQLITE_OK : code;
}

}  // namespace host
