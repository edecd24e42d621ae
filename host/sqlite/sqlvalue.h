#ifndef QUOREL_HOST_SQLITE_SQLVALUE_H
#define QUOREL_HOST_SQLITE_SQLVALUE_H

#include <cstdint>
#include <string>

#include "host/callframe.h"
#include "host/sqlite/sqliteapi.h"

namespace host {

/// Gives `frame` the bytes of `value` as argument `number`: a BLOB's own, the text of anything
/// else. They are used in place, so the value must outlive the frame unchanged. SQLITE_OK;
/// SQLITE_NOMEM; or SQLITE_ERROR with a sentence in `error`, also where the argument names a file
/// of an open database; or another error code of SQLite's.
int give_sql_value(sqlite3* db, CallFrame& frame, const Procedure& procedure, std::uint32_t number,
                   sqlite3_value* value, std::string& error);

}  // namespace host

#endif
