#include "host/sqlite/functions.h"

#include <atomic>
#include <memory>

#include "host/sqlite/schemaguard.h"
#include "host/sqlite/sqlfunction.h"

using namespace host;

int host::register_functions(sqlite3* db, const std::shared_ptr<const SqlConnection>& connection,
                             const std::function<void(std::uint64_t moved)>& on_progress) {
    for (const Procedure& procedure : procedures()) {
        const SqlFunction function{connection, &procedure, on_progress};
        const int code = function.is_table() ? register_table_function(db, function)
                                             : register_scalar_function(db, function);
        if (code != SQLITE_OK) return code;
    }
    return register_stand_in(db);
}

int quorel_sqlite_register(sqlite3* db, std::shared_ptr<const Engine> engine,
                           std::int32_t connection,
                           const std::function<void(std::uint64_t moved)>& on_progress) {
    return register_functions(
        db, std::make_shared<const SqlConnection>(std::move(engine), connection), on_progress);
}

std::int32_t quorel_sqlite_next_connection() {
    static std::atomic<std::int32_t> last{0};
    return ++last;
}
