#ifndef QUOREL_HOST_POSTGRES_BACKEND_H
#define QUOREL_HOST_POSTGRES_BACKEND_H

#include <memory>
#include <string>

#include "host/engine.h"
#include "host/postgres/bridge.h"

namespace host {

/// Where this backend's procedures run, as its settings say: the engine of its last call, or a new
/// one, after the mail sessions of the last have been stopped, which stay where they are. Null with
/// a sentence in `error`. For the backend's thread.
[[nodiscard]] std::shared_ptr<const Engine> backend_engine(const QuorelSettings& settings,
                                                           std::string& error);

/// Stops the mail sessions, waiting a second for their servers, and lets go of the engine.
void leave_backend_engine();

}  // namespace host

#endif
