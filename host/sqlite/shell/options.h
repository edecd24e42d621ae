#ifndef QUOREL_HOST_SQLITE_SHELL_OPTIONS_H
#define QUOREL_HOST_SQLITE_SHELL_OPTIONS_H

/// quorelsql's command line.

#include <optional>
#include <string>
#include <vector>

#include "host/sqlite/shell/rowprinter.h"
#include "host/worker/openengine.h"

namespace host {

struct Options {
    std::string database = ":memory:";
    std::string library;                ///< empty: the one that default_library_path() names
    std::vector<std::string> commands;  ///< each -c
    std::optional<std::string> script;  ///< a file, "-" for standard input
    Place place = wanted_place(Place::InWorker);
    Mode mode = Mode::Table;

    /// What to do instead of running: the exit status once help, the version or an error is
    /// printed.
    std::optional<int> exit;
};

/// Reads the command line; prints what is asked for, or what is wrong with it.
[[nodiscard]] Options parse_options(int argc, char** argv);

}  // namespace host

#endif
