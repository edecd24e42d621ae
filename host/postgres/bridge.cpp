#include "host/postgres/bridge.h"

#include "host/postgres/backend.h"
#include "host/postgres/declaration.h"
#include "host/postgres/memoryreserve.h"
#include "host/postgres/sqlcall.h"

using namespace host;

struct QuorelCall : SqlCall {
    using SqlCall::SqlCall;
};

namespace {

const Procedure& procedure_at(int place) {
    return procedures()[static_cast<std::size_t>(place)];
}

const char* text_of(const std::optional<Value>& value, std::size_t& length) {
    if (!value || value->is_null()) return nullptr;
    length = value->bytes->size();
    return value->bytes->c_str();
}

const char* words_or_null(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

}  // namespace

extern "C" {

// The names and words in the table are literals, which end with a zero byte.
const char* quorel_procedure_name(int procedure) {
    return procedure_at(procedure).name.data();
}

QuorelType quorel_argument_type(int procedure, int argument) {
    const Procedure& called = procedure_at(procedure);
    return argument_type(called, sql_arguments(called)[static_cast<std::size_t>(argument)]);
}

QuorelType quorel_result_type(int procedure) {
    return result_type(procedure_at(procedure));
}

const char* quorel_status_words(const char* name, std::int32_t status) {
    const Procedure* const procedure = find_procedure(name);
    return procedure != nullptr ? procedure->explain(status).data() : nullptr;
}

QuorelCall* quorel_begin(int procedure, const QuorelSettings* settings,
                         const QuorelServer* server) {
    if (!put_by_memory()) return nullptr;
    return new QuorelCall(procedure_at(procedure), *settings, *server);
}

void quorel_end(QuorelCall* call) {
    delete call;
}

void quorel_give(QuorelCall* call, int argument, const char* bytes, std::size_t length) {
    call->give(argument, bytes, length);
}

void quorel_give_number(QuorelCall* call, int argument, std::int32_t number) {
    call->give_number(argument, number);
}

std::uint64_t quorel_expected_size(const QuorelCall* call) {
    return call->expected_size();
}

QuorelOutcome quorel_run(QuorelCall* call) {
    return call->run();
}

const char* quorel_message(const QuorelCall* call) {
    return call->message().c_str();
}

const char* quorel_hint(const QuorelCall* call) {
    return words_or_null(call->hint());
}

const char* quorel_warning(const QuorelCall* call) {
    return words_or_null(call->warning());
}

bool quorel_number(const QuorelCall* call, std::int32_t* number) {
    const std::optional<Value>& value = call->result();
    const std::optional<std::int32_t> result = value ? value->as_int() : std::nullopt;
    *number = result.value_or(0);
    return result.has_value();
}

// A file without bytes sets no value, and is one.
bool quorel_has_bytes(const QuorelCall* call) {
    return !call->result() || !call->result()->is_null();
}

const char* quorel_text(const QuorelCall* call, std::size_t* length) {
    return text_of(call->out(0), *length);
}

// The values come without a gap. All of them are set, or none where there is no result.
int quorel_text_count(const QuorelCall* call) {
    if (!call->out(0)) return -1;
    const auto most = static_cast<int>(call->procedure().repeats);
    int count = 0;
    std::size_t length = 0;
    while (count < most && text_of(call->out(count), length) != nullptr) ++count;
    return count;
}

const char* quorel_text_at(const QuorelCall* call, int index, std::size_t* length) {
    return text_of(call->out(index), *length);
}

void quorel_leave(void) {
    leave_backend_engine();
}
}
