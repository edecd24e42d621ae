#ifndef QUOREL_HOST_OUTBOX_STORES_H
#define QUOREL_HOST_OUTBOX_STORES_H

#include <memory>
#include <string>

#include "host/outbox/store.h"

namespace host::outbox {

class GroupCommit;

/// The stores of a daemon's threads. Each has a connection of its own for what it reads; what they
/// exchange they commit together, through one more connection.
class Stores {
  public:
    /// As make_store() has them. One thread calls make() at a time.
    Stores(std::string where, std::string daemon);
    ~Stores();

    /// One for another thread, which may outlive this object. Null with a sentence where this build
    /// has no such database.
    std::unique_ptr<Store> make(std::string& error);

  private:
    const std::string _where;
    const std::string _daemon;
    std::shared_ptr<GroupCommit> _together;  // null before the first
};

}  // namespace host::outbox

#endif
