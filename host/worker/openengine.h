#ifndef QUOREL_HOST_WORKER_OPENENGINE_H
#define QUOREL_HOST_WORKER_OPENENGINE_H

#include <memory>
#include <string>
#include <string_view>

#include "host/engine.h"
#include "host/worker/workerprocess.h"

namespace host {

enum class Place { InProcess, InWorker };

/// What QUOREL_WORKER asks for (parse_switch() of host/text.h); `otherwise` when it says nothing.
[[nodiscard]] Place wanted_place(Place otherwise);

/// The engine that a connection works with, for the library at `path` or, when that is empty, the
/// one that is found. Null with a sentence in `error`, which ends with `remedy` where the file is
/// missing. A worker begins with the first call, and what is wrong with the library shows then.
[[nodiscard]] std::shared_ptr<const Engine> open_engine(Place place, const std::string& path,
                                                        std::string_view remedy, std::string& error,
                                                        ProcessGroup group = ProcessGroup::Hosts);

}  // namespace host

#endif
