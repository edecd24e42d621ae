#include "host/sqlite/interruptible.h"
#include "host/sqlite/schemaguard.h"
#include "host/sqlite/sqlfunction.h"
#include "host/utf8.h"

namespace host {

namespace {

// Collects the pieces of a BLOB in SQLite's own memory and under the connection's length limit.
class BlobBuilder {
  public:
    explicit BlobBuilder(sqlite3* db) : _bytes(sqlite3_str_new(db)) {}
    BlobBuilder(const BlobBuilder&) = delete;
    BlobBuilder& operator=(const BlobBuilder&) = delete;
    ~BlobBuilder() { sqlite3_free(sqlite3_str_finish(_bytes)); }

    bool take(const void* data, std::uint32_t length, bool append) {
        if (!append) sqlite3_str_reset(_bytes);
        sqlite3_str_append(_bytes, static_cast<const char*>(data), static_cast<int>(length));
        return error() == SQLITE_OK;
    }

    // SQLITE_TOOBIG or SQLITE_NOMEM for a value that does not fit.
    [[nodiscard]] int error() const { return sqlite3_str_errcode(_bytes); }

    void hand_over(sqlite3_context* context) {
        const auto length = static_cast<sqlite3_uint64>(sqlite3_str_length(_bytes));
        // An empty string has no memory, and without memory a BLOB is NULL.
        if (length == 0) return sqlite3_result_zeroblob(context, 0);
        sqlite3_result_blob64(context, sqlite3_str_finish(_bytes), length, sqlite3_free);
        _bytes = nullptr;
    }

  private:
    sqlite3_str* _bytes;
};

void hand_over(sqlite3_context* context, const std::optional<Value>& value) {
    if (!value || value->is_null()) return sqlite3_result_null(context);
    if (const std::optional<std::int32_t> number = value->as_int())
        return sqlite3_result_int(context, *number);
    const std::string_view text = without_cut_character(*value->bytes);
    sqlite3_result_text(context, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

const SqlFunction& function_of(sqlite3_context* context) {
    return *static_cast<const SqlFunction*>(sqlite3_user_data(context));
}

// check_direct_call(), once in a run of a statement: SQLite lets go of this note when the run ends.
// A slot below zero belongs to the statement and not to an argument, which a version of SQLite that
// has none of these would forget at once.
int check_run(sqlite3_context* context, const SqlFunction& function, std::string& error) {
    constexpr int slots = -0x51550000;
    const auto number = static_cast<int>(function.procedure - procedures().data());
    const int slot = slots - number;
    if (sqlite3_get_auxdata(context, slot) == &function) return SQLITE_OK;
    const int code =
        check_direct_call(sqlite3_context_db_handle(context), function.procedure->name, error);
    if (code == SQLITE_OK)
        sqlite3_set_auxdata(context, slot, const_cast<SqlFunction*>(&function), nullptr);
    return code;
}

int run(sqlite3_context* context, const SqlFunction& function, CallFrame& frame,
        std::span<sqlite3_value* const> values, std::string& error) {
    const int code = check_run(context, function, error);
    if (code != SQLITE_OK) return code;
    return call_from_sql(sqlite3_context_db_handle(context), function, frame, values, error);
}

// A procedure that hands back bytes. They stop coming when the statement is interrupted.
void call_for_bytes(sqlite3_context* context, int count, sqlite3_value** values) {
    const SqlFunction& function = function_of(context);
    sqlite3* db = sqlite3_context_db_handle(context);
    CallFrame frame(*function.connection->engine, *function.procedure, function.connection->number);
    BlobBuilder blob(db);
    InterruptProbe probe(db);
    frame.on_result = [&blob, &probe](const void* data, std::uint32_t length, bool append) {
        return !probe.interrupted() && blob.take(data, length, append);
    };
    std::string error;
    int code = run(context, function, frame, {values, static_cast<std::size_t>(count)}, error);
    if (code == SQLITE_OK) code = probe.interrupted() ? SQLITE_INTERRUPT : blob.error();
    if (code != SQLITE_OK) return give_error(context, code, error);
    if (frame.result() && frame.result()->is_null()) return sqlite3_result_null(context);
    blob.hand_over(context);
}

// A procedure that hands back its status, or the value of its OUT parameter.
void call_for_value(sqlite3_context* context, int count, sqlite3_value** values) {
    const SqlFunction& function = function_of(context);
    CallFrame frame(*function.connection->engine, *function.procedure, function.connection->number);
    std::string error;
    const int code =
        run(context, function, frame, {values, static_cast<std::size_t>(count)}, error);
    if (code != SQLITE_OK) return give_error(context, code, error);
    if (function.procedure->result == Result::Status) return hand_over(context, frame.result());
    for (std::uint32_t number = 1; number <= function.procedure->parameter_count(); ++number)
        if (function.procedure->is_out(number)) return hand_over(context, frame.out(number));
}

}  // namespace

void give_error(sqlite3_context* context, int code, const std::string& error) {
    if (code == SQLITE_TOOBIG) return sqlite3_result_error_toobig(context);
    if (code == SQLITE_NOMEM) return sqlite3_result_error_nomem(context);
    if (code != SQLITE_ERROR) return sqlite3_result_error_code(context, code);
    sqlite3_result_error(context, error.c_str(), static_cast<int>(error.size()));
}

int register_scalar_function(sqlite3* db, const SqlFunction& function) {
    // The functions count their arguments themselves, for a message that shows the call.
    constexpr int any_number = -1;
    return sqlite3_create_function_v2(
        db, std::string(function.procedure->name).c_str(), any_number,
        SQLITE_UTF8 | SQLITE_DIRECTONLY, new SqlFunction(function),
        function.procedure->result == Result::Bytes ? call_for_bytes : call_for_value, nullptr,
        nullptr, [](void* owned) { delete static_cast<SqlFunction*>(owned); });
}

}  // namespace host
