#ifndef QUOREL_HOST_SQLITE_SHELL_SESSION_H
#define QUOREL_HOST_SQLITE_SHELL_SESSION_H

/// What the shell works with: one database connection, the procedures, the terminal.

#include <cstdint>
#include <memory>
#include <string>

#include <sqlite3.h>

#include "host/sqlite/shell/progress.h"
#include "host/sqlite/shell/rowprinter.h"
#include "host/worker/openengine.h"

namespace host {

/// Owns the connection. For the main thread.
class Session {
  public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    /// Finds the library, opens the database and registers the procedures as SQL functions. The
    /// database file is not trusted: its schema cannot call what touches the machine, nor can SQL
    /// damage the file's structure. False with a sentence in `error`.
    bool open(const std::string& database, const std::string& library_path, Place place,
              std::string& error);

    std::shared_ptr<const Engine> engine;  ///< that the procedures run in
    sqlite3* db = nullptr;
    std::int32_t connection = 0;  ///< the number that procedures know this connection by
    bool interactive = false;     ///< a person types the statements
    OutputStyle style;
    bool bail = true;        ///< what comes in a file or on the command line ends with an error
    bool failed = false;     ///< a statement has failed
    int scripts_inside = 0;  ///< how deep .read is in scripts of scripts
    Progress progress;
};

}  // namespace host

#endif
