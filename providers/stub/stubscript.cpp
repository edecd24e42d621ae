#include "providers/stub/stubscript.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string_view>

#include <pthread.h>

#include "providers/stub/qxcistub.h"

namespace {

constexpr unsigned any_number = UINT32_MAX;

struct an_outcome_name {
    const char* name;
    StubOutcome outcome;
};

constexpr an_outcome_name outcomes[] = {
    {"ok", StubOutcome::ok},       {"fail", StubOutcome::fail},   {"done", StubOutcome::done},
    {"block", StubOutcome::block}, {"close", StubOutcome::close}, {"give", StubOutcome::give},
    {"max", StubOutcome::max},
};

struct an_operation_name {
    const char* name;
    const char* outcomes;  // the names of those that it may have, each with a blank behind it
};

/// In the order of StubOperation.
constexpr an_operation_name operations[stub_operation_count] = {
    {"env", "ok fail "},
    {"object", "ok fail "},
    {"work", "ok fail "},
    {"stream", "ok fail "},
    {"init", "ok fail "},
    {"conn", "ok fail "},
    {"handshake", "ok fail done block close "},
    {"read", "ok fail block close give max "},
    {"write", "ok fail block close done max "},
    {"flush", "ok fail block close done "},
    {"destroy", "ok done "},
};

struct a_parsed_step {
    StubOperation operation;
    unsigned count;  // calls that it is for, or any_number
    StubOutcome outcome;
    std::string_view argument;
};

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

/// Takes what stands before the first `separator`, and that too, off the text.
std::string_view take_until(std::string_view& text, char separator) {
    const size_t end = text.find(separator);
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return taken;
}

bool parse_number(std::string_view text, unsigned& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size();
}

bool parse_operation(std::string_view name, StubOperation& operation) {
    for (size_t i = 0; i < stub_operation_count; ++i) {
        operation = static_cast<StubOperation>(i);
        if (name == operations[i].name) return true;
    }
    return false;
}

bool parse_outcome(std::string_view name, StubOperation operation, StubOutcome& outcome) {
    for (const an_outcome_name& known : outcomes) {
        if (name != known.name) continue;
        outcome = known.outcome;
        const std::string_view allowed = operations[static_cast<size_t>(operation)].outcomes;
        // With the blank behind it, so that no beginning of a word passes for the word.
        const size_t place = allowed.find(name);
        return place != std::string_view::npos && allowed[place + name.size()] == ' ';
    }
    return false;
}

bool argument_is_good(StubOutcome outcome, std::string_view argument) {
    unsigned number;
    switch (outcome) {
    case StubOutcome::fail:
        if (!parse_number(take_until(argument, ','), number) || number == 0) return false;
        return argument.empty() || parse_number(take_until(argument, ','), number);
    case StubOutcome::give:
        return !argument.empty();
    case StubOutcome::max:
        return parse_number(argument, number) && number != 0;
    default:
        return argument.empty();
    }
}

/// Reads one step, without blanks around it.
bool parse_step(std::string_view text, a_parsed_step& step) {
    std::string_view operation = take_until(text, ' ');
    text = trimmed(text);
    const bool repeats = operation.find('*') != std::string_view::npos;
    if (!parse_operation(take_until(operation, '*'), step.operation)) return false;
    step.count = repeats ? any_number : 1;
    if (!operation.empty() && !parse_number(operation, step.count)) return false;
    if (!parse_outcome(take_until(text, ' '), step.operation, step.outcome)) return false;
    step.argument = trimmed(text);
    return step.argument.size() <= a_stub_step::max_text &&
           argument_is_good(step.outcome, step.argument);
}

/// Copies the text that is read, the ends of its lines in place of what stands for them.
void copy_given(char* to, std::string_view from) {
    for (; !from.empty(); from.remove_prefix(1)) {
        const bool is_end = from.starts_with("\\r") || from.starts_with("\\n");
        if (is_end) from.remove_prefix(1);
        *to++ = !is_end ? from[0] : from[0] == 'r' ? '\r' : '\n';
    }
    *to = '\0';
}

a_stub_step step_of(const a_parsed_step& parsed) {
    a_stub_step step;
    step.outcome = parsed.outcome;
    unsigned number = 0;
    if (parsed.outcome == StubOutcome::max) parse_number(parsed.argument, number);
    step.max = number;
    if (parsed.outcome == StubOutcome::give) {
        copy_given(step.text, parsed.argument);
    } else {
        parsed.argument.copy(step.text, a_stub_step::max_text);
    }
    return step;
}

/// The step for call number `call`, from 0, of an operation.
a_stub_step find_step(std::string_view script, StubOperation operation, unsigned call) {
    while (!script.empty()) {
        a_parsed_step step;
        const std::string_view text = trimmed(take_until(script, ';'));
        if (text.empty() || !parse_step(text, step) || step.operation != operation) continue;
        if (step.count == any_number || call < step.count) return step_of(step);
        // This step is used up: the call is one of those that later steps are for.
        call -= step.count;
    }
    return {};
}

/// For std::lock_guard. std::mutex can throw, and so brings the C++ run time's reserve of memory
/// for exceptions into the library, which stays behind at every unload.
class Mutex {
  public:
    void lock() { pthread_mutex_lock(&_mutex); }
    void unlock() { pthread_mutex_unlock(&_mutex); }

  private:
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// The script of the process.
class SharedScript {
  public:
    bool set(const char* script) {
        const size_t len = std::strlen(script);
        if (len > QXCI_STUB_MAX_SCRIPT || !stub_script_is_good(script)) return false;
        const std::lock_guard lock(_mutex);
        std::memcpy(_text, script, len + 1);
        ++_version;
        return true;
    }

    /// The step for the next of `calls` calls, which count from 0 again when the script is not the
    /// one of `version` any more.
    a_stub_step next(StubOperation operation, unsigned* calls, unsigned& version) {
        const std::lock_guard lock(_mutex);
        // Another thread may have set it since this object's last call.
        if (version != _version) std::memset(calls, 0, stub_operation_count * sizeof *calls);
        version = _version;
        return find_step(_text, operation, calls[static_cast<size_t>(operation)]++);
    }

  private:
    Mutex _mutex;
    unsigned _version = 0;                      // guarded by _mutex
    char _text[QXCI_STUB_MAX_SCRIPT + 1] = {};  // guarded by _mutex
};

SharedScript shared_script;

}  // namespace

bool stub_script_is_good(const char* script) {
    std::string_view rest = script;
    while (!rest.empty()) {
        a_parsed_step step;
        const std::string_view text = trimmed(take_until(rest, ';'));
        if (!text.empty() && !parse_step(text, step)) return false;
    }
    return true;
}

a_stub_step StubPlay::next(StubOperation operation) {
    if (_script == nullptr) return shared_script.next(operation, _calls, _version);
    return find_step(_script, operation, _calls[static_cast<size_t>(operation)]++);
}

bool QXCIStubScript(const char* script) {
    return shared_script.set(script == nullptr ? "" : script);
}
