#include "host/outbox/pgstore.h"

namespace host::outbox {

std::unique_ptr<Store> make_pg_store(const std::string&, const std::string&, Steps,
                                     std::string& error) {
    error = "this program was built without PostgreSQL's client library, which only 64-bit builds "
            "have; use one of those, or an outbox in a SQLite file";
    return nullptr;
}

}  // namespace host::outbox
