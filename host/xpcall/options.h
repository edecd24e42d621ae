#ifndef QUOREL_HOST_XPCALL_OPTIONS_H
#define QUOREL_HOST_XPCALL_OPTIONS_H

/// xpcall's command line.

#include <chrono>
#include <string>
#include <vector>

#include "host/callframe.h"
#include "host/worker/openengine.h"

namespace host {

/// One call as written.
struct XpcallCall {
    const Procedure* procedure = nullptr;
    std::vector<std::string> arguments;
};

struct XpcallOptions {
    std::string library;  ///< empty: the one that default_library_path() names
    std::uint32_t piece = CallFrame::default_piece;
    Place place = wanted_place(Place::InProcess);
    std::chrono::milliseconds deadline{0};  ///< of each call; zero: none
    std::vector<XpcallCall> calls;          ///< to be made in this order
};

/// Reads the command line; prints what is asked for, or what is wrong with it. True when there are
/// calls to make, all of procedures that exist; otherwise `status` is the exit status.
bool read_command_line(int argc, char** argv, XpcallOptions& options, int& status);

}  // namespace host

#endif
