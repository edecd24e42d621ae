#ifndef QUOREL_HOST_OUTBOX_OPTIONS_H
#define QUOREL_HOST_OUTBOX_OPTIONS_H

#include <string>

#include "host/outbox/shared.h"

namespace host::outbox {

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_NOT_ALL_SENT = 1,  ///< with --once: some mail failed, or is still to be sent
    EXIT_WRONG_USAGE = 2,   ///< the command line is not usable, whatever happens outside
    EXIT_NOT_STARTED = 3    ///< the outbox or the library is not usable, which may pass
};

enum class Job { Send, Install, Status };

struct Options {
    Job job = Job::Send;
    std::string where;  ///< as make_store() takes it
    std::string library;
    std::string metrics;  ///< a file's name; empty: none
    int sessions = 4;
    Rules rules;
};

/// False when the program is to end with `status`: what there is to say was said.
bool read_command_line(int argc, char** argv, Options& options, int& status);

}  // namespace host::outbox

#endif
