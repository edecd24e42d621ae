#ifndef QUOREL_HOST_OUTBOX_OPTIONS_H
#define QUOREL_HOST_OUTBOX_OPTIONS_H

#include <string>

#include "host/outbox/shared.h"

namespace host::outbox {

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_NOT_ALL_SENT = 1,  ///< with --once some mail failed or is still to be sent; third signal
    EXIT_WRONG_USAGE = 2,   ///< what no new start mends; the service's unit says this number too
    EXIT_FAILED = 3         ///< the outbox, the library or the machine does not serve
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
