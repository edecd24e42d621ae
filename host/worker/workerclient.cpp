#include "host/worker/workerclient.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>

#include <unistd.h>

#include "host/librarypath.h"
#include "host/worker/calldriver.h"
#include "host/worker/calllimits.h"
#include "host/worker/workerprocess.h"

namespace host {

namespace {

// What a call registers: like a command's record, but of no kind that a library knows.
struct CallRecord {
    a_cancel_info info;
    int number;
};
static_assert(offsetof(CallRecord, info) == 0);
constexpr auto no_command = static_cast<a_cancel_fn>(1);

bool is_mail(std::string_view procedure) {
    return procedure.ends_with("smtp") || procedure == "xp_sendmail";
}

}  // namespace

// One mutex: a call at a time, on whatever thread.
class WorkerClient::State {
  public:
    explicit State(WorkerFiles files) : _files(std::move(files)), _limits(_worker) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { _worker.end(std::chrono::seconds(1)); }

    CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                 const Interrupted& interrupted, std::string& error);
    CallLimits& limits() { return _limits; }

  private:
    bool _start(std::string_view procedure, std::string& error);
    CallEnd _talk(std::string_view procedure, an_extfn_api& api, void* handle, std::string& error);
    bool _register_for_cancel(an_extfn_api& api, void* handle) const;
    void _note_session(std::string_view procedure, std::optional<std::int32_t> status);
    std::string _explain(Talk talk, std::string_view procedure);
    std::string _end_worker(Talk talk);

    std::mutex _mutex;
    const WorkerFiles _files;
    WorkerProcess _worker;
    CallLimits _limits;
    SharedPieces _shared;
    std::unique_ptr<FrameSocket> _socket;  // of _worker
    std::string _folder;                   // that it works in; empty: not known
    int _number = 0;                       // of the call
    bool _has_session = false;             // of mail
};

// One that died while nobody looked is replaced without a word; its mail session is missed soon
// enough.
bool WorkerClient::State::_start(std::string_view procedure, std::string& error) {
    if (_worker.is_idle()) return true;
    _end_worker(Talk::Ended);
    _folder = current_folder();
    if (!_worker.start(_files.program, error)) return false;
    _socket = std::make_unique<FrameSocket>(_worker.socket(), Sender::Worker,
                                            [this](short events) { return _limits.wait(events); });
    _shared.create();
    const Talk talk = greet(*_socket, _files.library, _shared, error);
    if (talk == Talk::Done) return true;
    if (talk == Talk::Failed) _end_worker(talk);
    if (talk != Talk::Failed) error = _explain(talk, procedure);
    return false;
}

// Without memory for the record the call runs all the same; only a deadline and its thread's own
// interrupt end it then.
bool WorkerClient::State::_register_for_cancel(an_extfn_api& api, void* handle) const {
    auto* const record = static_cast<CallRecord*>(calloc(1, sizeof(CallRecord)));
    if (record == nullptr) return false;
    record->info.fn = no_command;
    record->number = _number;
    api.set_cancel(handle, record);
    return true;
}

CallEnd WorkerClient::State::call(std::string_view procedure, an_extfn_api& api, void* handle,
                                  const Interrupted& interrupted, std::string& error) {
    const std::lock_guard lock(_mutex);
    _number = _number % INT32_MAX + 1;
    _limits.begin(_number, interrupted);
    _register_for_cancel(api, handle);
    if (!_start(procedure, error)) return CallEnd::NotCalled;
    return _talk(procedure, api, handle, error);
}

CallEnd WorkerClient::State::_talk(std::string_view procedure, an_extfn_api& api, void* handle,
                                   std::string& error) {
    std::string folder = current_folder();
    const bool moved = folder.empty() || folder != _folder;
    // One that has been removed is still the host's, and can still be entered.
    const std::string target =
        folder.empty() ? "/proc/" + std::to_string(getpid()) + "/cwd" : folder;
    CallDriver driver(*_socket, _shared, api, handle, [this] { return _limits.go_on(); });
    const Talk talk = driver.run(static_cast<std::uint32_t>(_number), procedure,
                                 moved ? target : std::string_view(), error);
    _folder = std::move(folder);
    if (talk == Talk::Failed) {
        _folder.clear();  // it may have stayed where it was
        return CallEnd::NotCalled;
    }
    if (talk == Talk::Done) {
        _note_session(procedure, driver.status());
        if (!driver.was_cancelled() || _limits.reason() != CallLimits::Reason::TooLong)
            return CallEnd::Returned;
    }
    error = _explain(talk, procedure);
    return _limits.reason() == CallLimits::Reason::TooLong ? CallEnd::TooLong : CallEnd::Ended;
}

void WorkerClient::State::_note_session(std::string_view procedure,
                                        std::optional<std::int32_t> status) {
    if (status != 0) return;
    if (procedure == "xp_startsmtp") _has_session = true;
    if (procedure == "xp_stopsmtp") _has_session = false;
}

std::string WorkerClient::State::_end_worker(Talk talk) {
    // One that ended by itself has closed its socket a moment ago.
    constexpr std::chrono::milliseconds moment(100);
    _has_session = false;
    _socket.reset();
    return _worker.end(talk == Talk::GaveUp ? std::chrono::milliseconds(0) : moment);
}

// What became of a call that did not return, and of its worker; Done: it lives on.
std::string WorkerClient::State::_explain(Talk talk, std::string_view procedure) {
    std::string text(procedure);
    const bool had_session = _has_session && talk != Talk::Done;
    const std::string end = talk == Talk::Done ? "" : _end_worker(talk);
    if (_limits.reason() == CallLimits::Reason::TooLong)
        text += " took longer than " + _limits.allowed() + " and was ended";
    else if (_limits.reason() == CallLimits::Reason::Cancelled)
        text += " was cancelled";
    else if (talk == Talk::Broken)
        text += ": its worker talked nonsense and was ended";
    else
        text += ": its worker " + end;
    if (!had_session) return text;
    return text + (is_mail(procedure) ? "; its mail session is closed"
                                      : "; the connection's mail session is closed");
}

WorkerClient::WorkerClient(WorkerFiles files) : _state(std::make_unique<State>(std::move(files))) {}

WorkerClient::~WorkerClient() = default;

CallEnd WorkerClient::call(std::string_view procedure, an_extfn_api& api, void* handle,
                           const Interrupted& interrupted, std::string& error) const {
    return _state->call(procedure, api, handle, interrupted, error);
}

void WorkerClient::cancel(void* record) const {
    _state->limits().cancel(static_cast<const CallRecord*>(record)->number);
}

void WorkerClient::set_deadline(std::chrono::milliseconds deadline) const {
    _state->limits().set_deadline(deadline);
}

}  // namespace host
