#include "host/sqlite/sqlvalue.h"

#include "host/sqlite/databasefiles.h"

namespace host {

namespace {

// The procedure would open the file that `name` names.
int refuse_open_database(sqlite3* db, std::string_view name, std::string& error) {
    bool is_open = false;
    const int code = is_open_database(db, std::string(name), is_open);
    if (!is_open) return code;
    error = "this program has that file in use, as it has an open database's; "
            "copy a database with VACUUM INTO";
    return SQLITE_ERROR;
}

}  // namespace

int give_sql_value(sqlite3* db, CallFrame& frame, const Procedure& procedure, std::uint32_t number,
                   sqlite3_value* value, std::string& error) {
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_NULL)
        return frame.set_argument(number, Value::null(EXTFN_TYPE_STRING), error) ? SQLITE_OK
                                                                                 : SQLITE_ERROR;
    const void* data = type == SQLITE_BLOB ? sqlite3_value_blob(value) : sqlite3_value_text(value);
    const auto length = static_cast<std::size_t>(sqlite3_value_bytes(value));
    // An empty BLOB has no memory; anything else without memory could not be fetched.
    if (data == nullptr && (type != SQLITE_BLOB || length > 0)) return SQLITE_NOMEM;
    const std::string_view bytes(static_cast<const char*>(data), length);
    // First, because what it refuses is no file's name.
    if (!frame.lend_argument(number, bytes, error)) return SQLITE_ERROR;
    return procedure.parameter(number).file != FileUse::None
               ? refuse_open_database(db, bytes, error)
               : SQLITE_OK;
}

}  // namespace host
