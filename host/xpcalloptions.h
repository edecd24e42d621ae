#ifndef QUOREL_HOST_XPCALLOPTIONS_H
#define QUOREL_HOST_XPCALLOPTIONS_H

/// xpcall's command line.

#include <string>
#include <vector>

#include "host/callframe.h"

namespace host {

struct XpcallOptions {
    std::string library;  ///< empty: the one that Library::default_path() names
    std::uint32_t piece = CallFrame::default_piece;
    const Procedure* procedure = nullptr;
    std::vector<std::string> arguments;  ///< as written
};

/// Reads the command line; prints what is asked for, or what is wrong with it. True when there is a
/// call to make; otherwise `status` is the exit status.
bool read_command_line(int argc, char** argv, XpcallOptions& options, int& status);

}  // namespace host

#endif
