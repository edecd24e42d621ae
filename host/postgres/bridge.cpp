#include "host/postgres/bridge.h"

#include <algorithm>
#include <deque>
#include <new>
#include <optional>

#include <sys/stat.h>

#include "host/callframe.h"
#include "host/mailsession.h"
#include "host/postgres/declaration.h"
#include "host/postgres/memoryreserve.h"
#include "host/postgres/pathguard.h"
#include "host/postgres/watch.h"
#include "host/worker/openengine.h"

using namespace host;

namespace {

constexpr std::chrono::milliseconds longest_leave(1000);
constexpr const char* remedy =
    "install it beside the extension's module, or name its file in quorel.library";

// Where the backend's procedures run. It goes with the process, whose end is no time to unload.
struct Backend {
    std::shared_ptr<const Engine> engine;  // null: none yet
    bool in_worker = false;
    std::string library;
    std::int32_t connection = 0;

    bool open(const QuorelSettings& settings, std::string& error) {
        if (engine != nullptr && in_worker == settings.in_worker && library == settings.library)
            return true;
        // Mail sessions stay where they are.
        leave();
        in_worker = settings.in_worker;
        library = settings.library;
        connection = settings.connection;
        engine =
            open_engine(in_worker ? Place::InWorker : Place::InProcess, library, remedy, error);
        return engine != nullptr;
    }

    void leave() {
        if (engine != nullptr) end_mail_sessions(engine, connection, longest_leave);
        engine = nullptr;
    }
};

Backend& backend() {
    static auto& only = *new Backend;
    return only;
}

QuorelOutcome outcome_of(CallFrame::Failure failure) {
    switch (failure) {
    case CallFrame::Failure::None:
        return QUOREL_DONE;
    case CallFrame::Failure::Arguments:
        return QUOREL_BAD_ARGUMENT;
    case CallFrame::Failure::NotCalled:
        return QUOREL_UNAVAILABLE;
    case CallFrame::Failure::TooLong:
        return QUOREL_TOO_LONG;
    case CallFrame::Failure::Doubtful:
        return QUOREL_DOUBTFUL;
    default:
        return QUOREL_ENDED;
    }
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

struct QuorelCall {
    QuorelCall(const Procedure& its_procedure, const QuorelSettings& its_settings,
               const QuorelServer& its_server)
        : procedure(its_procedure), settings(its_settings), server(its_server),
          numbers(sql_arguments(procedure)), outs(first_out(procedure)),
          given(procedure.parameter_count()) {
        if (!backend().open(settings, message))
            outcome = QUOREL_UNAVAILABLE;
        else
            frame.emplace(*(engine = backend().engine), procedure, settings.connection);
    }

    // Further calls leave the first refusal as it is.
    void refuse(QuorelOutcome why, std::string words, std::string what_to_do = {}) {
        if (outcome != QUOREL_DONE) return;
        outcome = why;
        message = std::move(words);
        hint = std::move(what_to_do);
    }

    [[nodiscard]] std::uint32_t next_number(int argument);
    void give(int argument, const char* bytes, std::size_t length);
    void give_number(int argument, std::int32_t number);

    void guard_files();
    void guard_file(std::uint32_t number, FileUse use);
    [[nodiscard]] bool has_contents() const;
    [[nodiscard]] std::string safe_name(std::uint32_t number, const Descriptor& file);
    void expect_file();
    void run();
    bool call_in_process();

    const Procedure& procedure;
    const QuorelSettings& settings;
    const QuorelServer& server;
    const std::vector<std::uint32_t> numbers;  // of the SQL arguments' parameters
    const std::uint32_t outs;                  // the first OUT parameter
    std::shared_ptr<const Engine> engine;
    std::optional<CallFrame> frame;  // none: there is no engine

    std::uint32_t repeated = 0;  // values given for the last parameter
    std::vector<std::optional<std::string_view>> given;
    std::deque<Descriptor> files;  // that replaced names stand for
    NamedLink attachment;
    std::uint64_t expected_size = 0;

    QuorelOutcome outcome = QUOREL_DONE;
    std::string message;
    std::string hint;
};

// 0 for a value that there is no parameter for.
std::uint32_t QuorelCall::next_number(int argument) {
    const std::uint32_t number = numbers[static_cast<std::size_t>(argument)];
    if (!is_repeated(procedure, number)) return number;
    if (repeated < procedure.repeats) return number + repeated++;
    refuse(QUOREL_BAD_ARGUMENT, std::string(procedure.name) + " takes at most " +
                                    std::to_string(procedure.repeats) + " values");
    return 0;
}

void QuorelCall::give(int argument, const char* bytes, std::size_t length) {
    if (outcome != QUOREL_DONE) return;
    const std::uint32_t number = next_number(argument);
    if (number == 0) return;
    std::string error;
    bool taken = false;
    if (bytes != nullptr) {
        given[number - 1] = std::string_view(bytes, length);
        taken = frame->lend_argument(number, *given[number - 1], error);
    } else {
        taken = frame->set_argument(number, Value::null(EXTFN_TYPE_STRING), error);
    }
    if (!taken) refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

void QuorelCall::give_number(int argument, std::int32_t value) {
    if (outcome != QUOREL_DONE) return;
    const std::uint32_t number = next_number(argument);
    std::string error;
    if (procedure.guard == guard_start && number == start_plaintext && value == 1 &&
        !settings.allow_plaintext_auth)
        refuse(QUOREL_FORBIDDEN, procedure.describe(number) + "is not allowed here",
               "A superuser allows it with quorel.allow_plaintext_auth; better give trusted_cert, "
               "which asks for TLS.");
    else if (!frame->set_argument(number, Value::number(value), error))
        refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

void QuorelCall::guard_files() {
    for (std::uint32_t number = 1; number <= procedure.parameters.size(); ++number) {
        const FileUse use = procedure.parameter(number).file;
        if (use != FileUse::None && given[number - 1]) guard_file(number, use);
    }
}

// In place of the name, the procedure gets one that means the file that was judged.
void QuorelCall::guard_file(std::uint32_t number, FileUse use) {
    const bool writes = use == FileUse::Writes;
    const QuorelFolders& allowed = writes ? settings.write_paths : settings.read_paths;
    if (allowed.count == 0) return;
    const IfMissing if_missing = writes && has_contents() ? IfMissing::Create : IfMissing::Leave;
    Descriptor file;
    const Found found =
        open_below({allowed.folders, allowed.count}, *given[number - 1], if_missing, file);
    if (found == Found::Outside)
        return refuse(QUOREL_FORBIDDEN,
                      procedure.describe(number) + "names a file outside " + allowed.setting,
                      "The setting lists the folders whose files may be named. No link may lead "
                      "out of them.");
    std::string name = found == Found::Opened ? safe_name(number, file) : no_file;
    if (file.is_open()) files.push_back(std::move(file));
    std::string error;
    if (!frame->set_argument(number, Value::text(std::move(name), EXTFN_TYPE_STRING), error))
        refuse(QUOREL_BAD_ARGUMENT, std::move(error));
}

// Without any the procedure leaves the file alone.
bool QuorelCall::has_contents() const {
    const std::uint32_t number = procedure.file.contents;
    return number != 0 && given[number - 1] && !given[number - 1]->empty();
}

// An attachment's name goes into the message.
std::string QuorelCall::safe_name(std::uint32_t number, const Descriptor& file) {
    if (procedure.parameter(number).content != Content::Attachment) return name_of(file);
    const std::string_view name = *given[number - 1];
    if (attachment.make(settings.scratch, name.substr(name.rfind('/') + 1), name_of(file)))
        return attachment.path();
    return no_file;
}

void QuorelCall::expect_file() {
    if (procedure.reach != Reach::FilesToRead || !given[0]) return;
    const std::string name = files.empty() ? std::string(*given[0]) : name_of(files.front());
    struct stat64 status {};
    if (stat64(name.c_str(), &status) == 0 && S_ISREG(status.st_mode))
        expected_size = static_cast<std::uint64_t>(status.st_size);
}

bool QuorelCall::call_in_process() {
    const std::chrono::milliseconds deadline(settings.deadline);
    Watch watch(*frame, server.should_stop, deadline);
    const bool called = frame->call(message);
    if (!watch.end()) return called;
    outcome = QUOREL_TOO_LONG;
    message = std::string(procedure.name) + " took longer than " +
              std::to_string(settings.deadline) + " ms and was ended";
    return false;
}

void QuorelCall::run() {
    if (outcome == QUOREL_DONE) guard_files();
    if (outcome != QUOREL_DONE) return;
    expect_file();
    frame->on_wait = server.attend;
    if (result_type(procedure) == QUOREL_BYTES)
        frame->on_result = [this](const void* data, std::uint32_t length, bool append) {
            return server.take(server.sink, data, length, append);
        };
    note_mail_call(procedure, *frame, settings.connection);
    engine->set_deadline(std::chrono::milliseconds(settings.deadline));
    const bool watched = procedure.cancellable && !engine->ends_calls();
    const bool called = watched ? call_in_process() : frame->call(message);
    if (!called && outcome == QUOREL_DONE) outcome = outcome_of(frame->failure());
    if (outcome == QUOREL_TOO_LONG) hint = "The setting quorel.deadline limits each call.";
}

extern "C" {

const char* quorel_procedure_name(int procedure) {
    // The table's names are literals.
    return procedures()[static_cast<std::size_t>(procedure)].name.data();
}

QuorelType quorel_argument_type(int procedure, int argument) {
    const Procedure& called = procedures()[static_cast<std::size_t>(procedure)];
    return argument_type(called, sql_arguments(called)[static_cast<std::size_t>(argument)]);
}

QuorelType quorel_result_type(int procedure) {
    return result_type(procedures()[static_cast<std::size_t>(procedure)]);
}

const char* quorel_status_words(const char* name, std::int32_t status) {
    const Procedure* const procedure = find_procedure(name);
    return procedure != nullptr ? procedure->explain(status).data() : nullptr;
}

QuorelCall* quorel_begin(int procedure, const QuorelSettings* settings,
                         const QuorelServer* server) {
    if (!put_by_memory()) return nullptr;
    return new QuorelCall(procedures()[static_cast<std::size_t>(procedure)], *settings, *server);
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
    return call->expected_size;
}

QuorelOutcome quorel_run(QuorelCall* call) {
    call->run();
    return call->outcome;
}

const char* quorel_message(const QuorelCall* call) {
    return call->message.c_str();
}

const char* quorel_hint(const QuorelCall* call) {
    return words_or_null(call->hint);
}

const char* quorel_warning(const QuorelCall* call) {
    return call->frame ? words_or_null(call->frame->warning()) : nullptr;
}

bool quorel_number(const QuorelCall* call, std::int32_t* number) {
    const std::optional<Value>& value = call->frame->result();
    const std::optional<std::int32_t> result = value ? value->as_int() : std::nullopt;
    *number = result.value_or(0);
    return result.has_value();
}

const char* quorel_text(const QuorelCall* call, std::size_t* length) {
    return text_of(call->frame->out(call->outs), *length);
}

// A file without bytes sets no value, and is one.
bool quorel_has_bytes(const QuorelCall* call) {
    const std::optional<Value>& value = call->frame->result();
    return !value || !value->is_null();
}

// The values come without a gap, and all of them are set, or none where there is no result.
int quorel_text_count(const QuorelCall* call) {
    if (!call->frame->out(call->outs)) return -1;
    int count = 0;
    for (std::uint32_t i = 0; i < call->procedure.repeats; ++i) {
        const std::optional<Value>& value = call->frame->out(call->outs + i);
        if (value && !value->is_null()) ++count;
    }
    return count;
}

const char* quorel_text_at(const QuorelCall* call, int index, std::size_t* length) {
    return text_of(call->frame->out(call->outs + static_cast<std::uint32_t>(index)), *length);
}

void quorel_leave(void) {
    backend().leave();
}
}
