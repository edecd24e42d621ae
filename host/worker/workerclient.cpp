#include "host/worker/workerclient.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <type_traits>

#include <sys/eventfd.h>
#include <unistd.h>

#include "host/librarypath.h"
#include "host/procedures.h"
#include "host/worker/calldriver.h"
#include "host/worker/calllimits.h"
#include "host/worker/workerprocess.h"

namespace host {

namespace {

// What a call registers: like a command's record, but of no kind that a library knows.
struct CallRecord {
    a_cancel_info info;
    CancelWish wish;
};
static_assert(offsetof(CallRecord, info) == 0);
static_assert(std::is_trivially_destructible_v<CallRecord>);
constexpr auto no_command = static_cast<a_cancel_fn>(1);

bool is_mail(std::string_view procedure) {
    return procedure.ends_with("smtp") || procedure == "xp_sendmail";
}

// The number of the mail session that a call is about.
std::int32_t session_of(std::string_view procedure, an_extfn_api& api, void* handle) {
    an_extfn_value value{};
    std::int32_t number = 0;
    const std::uint32_t place = find_procedure(procedure)->parameter_number("cid");
    if (api.get_value(handle, place, &value) != 0 && value.piece_len == sizeof number)
        memcpy(&number, value.data, sizeof number);
    return number;
}

CallRecord* register_for_cancel(an_extfn_api& api, void* handle) {
    void* const memory = malloc(sizeof(CallRecord));
    if (memory == nullptr) return nullptr;
    auto* const record = new (memory) CallRecord{};
    record->info.fn = no_command;
    api.set_cancel(handle, record);
    return record;
}

}  // namespace

class WorkerClient::State {
  public:
    State(WorkerFiles files, unsigned most_sessions)
        : _files(std::move(files)), _most_sessions(most_sessions) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { _worker.end(std::chrono::seconds(1)); }

    CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                 const Interrupted& interrupted, std::string& error);
    void set_deadline(std::chrono::milliseconds deadline) { _allowed.store(deadline.count()); }
    bool wait_for(int descriptor, short events) { return _limits->wait_for(descriptor, events); }
    bool remembers();

  private:
    CallEnd _make_call(std::string_view procedure, an_extfn_api& api, void* handle,
                       std::string& error);
    int _own_wake();
    bool _is_worn() const;
    bool _start(std::string_view procedure, std::string& error);
    CallEnd _talk(std::string_view procedure, an_extfn_api& api, void* handle, std::string& error);
    void _note_session(std::string_view procedure, an_extfn_api& api, void* handle, bool succeeded);
    std::string _explain(Talk talk, std::string_view procedure);
    std::string _end_worker(Talk talk);

    const WorkerFiles _files;
    const unsigned _most_sessions;
    std::atomic<std::chrono::milliseconds::rep> _allowed{0};
    Turn _turn;  // a call at a time, on whatever thread; it guards all that follows

    WorkerProcess _worker;
    CallLimits* _limits = nullptr;  // of the running call
    Descriptor _wake;               // its eventfd
    pid_t _process = 0;             // whose _wake it is
    SharedPieces _shared;
    std::unique_ptr<FrameSocket> _socket;  // of _worker
    std::string _folder;                   // that it works in; empty: not known
    int _number = 0;                       // of the call
    std::set<std::int32_t> _sessions;      // of mail, those that are open
    unsigned _past_sessions = 0;           // those that it has stopped
    bool _ran_commands = false;
};

bool WorkerClient::State::_is_worn() const {
    return !_ran_commands && _sessions.empty() && _past_sessions >= _most_sessions;
}

// One that died while nobody looked is replaced without a word; its mail session is missed soon
// enough.
bool WorkerClient::State::_start(std::string_view procedure, std::string& error) {
    if (_worker.is_idle() && !_is_worn()) return true;
    _end_worker(Talk::Ended);
    _folder = current_folder();
    if (!_worker.start(_files.program, _files.group, error)) return false;
    _socket.reset(new (std::nothrow) FrameSocket(
        _worker.socket(), Sender::Worker, [this](short events) { return _limits->wait(events); }));
    if (_socket == nullptr) {
        _end_worker(Talk::GaveUp);
        error = "there is no memory left to talk to the worker";
        return false;
    }
    _shared.create();
    const Talk talk = greet(*_socket, _files.library, _shared, error);
    if (talk == Talk::Done) return true;
    if (talk == Talk::Failed) _end_worker(talk);
    if (talk != Talk::Failed) error = _explain(talk, procedure);
    return false;
}

// A forked copy of the host that had the same one would take the wake-up away.
int WorkerClient::State::_own_wake() {
    if (_process != getpid()) {
        _wake = above_standard(Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
        _process = getpid();
    }
    return _wake.number();
}

CallEnd WorkerClient::State::call(std::string_view procedure, an_extfn_api& api, void* handle,
                                  const Interrupted& interrupted, std::string& error) {
    // Without memory for the record the call runs all the same; only a deadline and its thread's
    // own interrupt end it then.
    CancelWish nobodys;
    CallRecord* const record = register_for_cancel(api, handle);
    CancelWish& wish = record != nullptr ? record->wish : nobodys;
    CallLimits limits(std::chrono::milliseconds(_allowed.load()), interrupted, wish);
    if (!limits.take_turn(_turn)) {
        error = std::string(procedure);
        error += limits.reason() == CallLimits::Reason::Cancelled
                     ? " was cancelled"
                     : " was not called: another call took longer than " + limits.allowed();
        return CallEnd::NotCalled;
    }
    const std::lock_guard lock(_turn, std::adopt_lock);
    _limits = &limits;
    _number = _number % INT32_MAX + 1;
    wish.wake_at(_own_wake());
    limits.begin(_worker, _number, _wake.number());
    return _make_call(procedure, api, handle, error);
}

CallEnd WorkerClient::State::_make_call(std::string_view procedure, an_extfn_api& api, void* handle,
                                        std::string& error) {
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
    CallDriver driver(*_socket, _shared, api, handle, [this] { return _limits->go_on(); });
    const Talk talk = driver.run(static_cast<std::uint32_t>(_number), procedure,
                                 moved ? target : std::string_view(), error);
    _folder = std::move(folder);
    if (talk == Talk::Failed) {
        _folder.clear();  // it may have stayed where it was
        return CallEnd::NotCalled;
    }
    if (talk == Talk::Done) {
        _note_session(procedure, api, handle, driver.status() == 0);
        const bool too_late =
            driver.was_cancelled() && _limits->reason() == CallLimits::Reason::TooLong;
        if (!too_late && !_limits->host_gave_up()) return CallEnd::Returned;
    }
    error = _explain(talk, procedure);
    return _limits->reason() == CallLimits::Reason::TooLong ? CallEnd::TooLong : CallEnd::Ended;
}

void WorkerClient::State::_note_session(std::string_view procedure, an_extfn_api& api, void* handle,
                                        bool succeeded) {
    if (procedure == "xp_startsmtp" && succeeded)
        _sessions.insert(session_of(procedure, api, handle));
    if (procedure == "xp_cmdshell") _ran_commands = true;
    if (procedure != "xp_stopsmtp") return;
    _sessions.erase(session_of(procedure, api, handle));
    ++_past_sessions;
}

std::string WorkerClient::State::_end_worker(Talk talk) {
    // One that ended by itself has closed its socket a moment ago.
    constexpr std::chrono::milliseconds moment(100);
    _sessions.clear();
    _past_sessions = 0;
    _ran_commands = false;
    _socket.reset();
    return _worker.end(talk == Talk::GaveUp ? std::chrono::milliseconds(0) : moment);
}

// What became of a call that did not return, and of its worker; Done: it lives on.
std::string WorkerClient::State::_explain(Talk talk, std::string_view procedure) {
    std::string text(procedure);
    const bool had_session = !_sessions.empty() && talk != Talk::Done;
    const std::string end = talk == Talk::Done ? "" : _end_worker(talk);
    if (_limits->reason() == CallLimits::Reason::TooLong)
        text += " took longer than " + _limits->allowed() + " and was ended";
    else if (_limits->reason() == CallLimits::Reason::Cancelled)
        text += " was cancelled";
    else if (talk == Talk::Broken)
        text += ": its worker talked nonsense and was ended";
    else
        text += ": its worker " + end;
    if (!had_session) return text;
    return text + (is_mail(procedure) ? "; its mail session is closed"
                                      : "; the connection's mail session is closed");
}

// While a call is under way there is something to remember, soon.
bool WorkerClient::State::remembers() {
    const std::unique_lock lock(_turn, std::try_to_lock);
    return !lock.owns_lock() || _worker.is_idle();
}

WorkerClient::WorkerClient(WorkerFiles files, unsigned most_sessions)
    : _state(std::make_unique<State>(std::move(files), most_sessions)) {}

WorkerClient::~WorkerClient() = default;

CallEnd WorkerClient::call(std::string_view procedure, an_extfn_api& api, void* handle,
                           const Interrupted& interrupted, std::string& error) const {
    return _state->call(procedure, api, handle, interrupted, error);
}

void WorkerClient::cancel(void* record) const {
    static_cast<CallRecord*>(record)->wish.make();
}

void WorkerClient::set_deadline(std::chrono::milliseconds deadline) const {
    _state->set_deadline(deadline);
}

bool WorkerClient::wait_for(int descriptor, short events) const {
    return _state->wait_for(descriptor, events);
}

bool WorkerClient::remembers() const {
    return _state->remembers();
}

}  // namespace host
