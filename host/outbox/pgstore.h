#ifndef QUOREL_HOST_OUTBOX_PGSTORE_H
#define QUOREL_HOST_OUTBOX_PGSTORE_H

#include "host/outbox/schema.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// The outbox in a PostgreSQL database of version 15 or later. `steps`: what installs it. Null with
/// a sentence in `error` where this build has no PostgreSQL.
std::unique_ptr<Store> make_pg_store(const std::string& conninfo, const std::string& daemon,
                                     Steps steps, std::string& error);

}  // namespace host::outbox

#endif
