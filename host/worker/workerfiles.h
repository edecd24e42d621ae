#ifndef QUOREL_HOST_WORKER_WORKERFILES_H
#define QUOREL_HOST_WORKER_WORKERFILES_H

#include <string>
#include <string_view>

#include "host/worker/workerprocess.h"

namespace host {

/// What a worker is made of. Both have the same word size, which need not be the host's.
struct WorkerFiles {
    std::string library;
    std::string program;
    ProcessGroup group = ProcessGroup::Hosts;
};

/// Finds the library, as a host that loads it would, and then those that are installed for the
/// other word size; `library` names one, unless it is empty. The program is the quorel-worker of
/// the library's word size: beside the library, else beside the host. False with a sentence in
/// `error`, which ends with `remedy` where the library is missing.
[[nodiscard]] bool find_worker(const std::string& library, std::string_view remedy,
                               WorkerFiles& files, std::string& error);

}  // namespace host

#endif
