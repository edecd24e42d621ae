#ifndef QUOREL_HOST_ENGINE_H
#define QUOREL_HOST_ENGINE_H

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "extdll/extfn.h"

namespace host {

/// How a call has ended.
enum class CallEnd {
    Returned,  ///< the procedure returned
    Ended,     ///< it was under way, and does not return any more
    TooLong,   ///< the same, at its deadline
    NotCalled
};

/// Where the library's procedures run: in this process (Library) or in one of their own
/// (WorkerClient). All that a host does with a call is the same for both.
///
/// Safe on any thread; an engine in a process of its own makes one call at a time.
class Engine {
  public:
    /// Asked on the calling thread every probe_interval or so; true cancels the call.
    using Interrupted = std::function<bool()>;
    static constexpr std::chrono::milliseconds probe_interval{25};
    /// What is left to a call at most, once it is cancelled or its deadline has passed.
    static constexpr std::chrono::milliseconds grace{250};

    Engine() = default;
    Engine(const Engine&) = default;
    Engine& operator=(const Engine&) = default;
    virtual ~Engine() = default;

    /// Calls the exported `procedure` with the callbacks of `api` on this thread. Whatever end but
    /// Returned leaves a sentence in `error` that says why.
    virtual CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                         const Interrupted& interrupted, std::string& error) const = 0;

    /// Cancels what the record that a running call registered stands for. Async-signal-safe.
    virtual void cancel(void* record) const = 0;

    /// True where every call can be cancelled and have a deadline, whatever it is doing.
    [[nodiscard]] virtual bool ends_calls() const { return false; }
    /// What a call may take from now on; zero: as long as it likes. Nothing happens where calls
    /// cannot be ended.
    virtual void set_deadline(std::chrono::milliseconds /*deadline*/) const {}

    /// For the callbacks of a running call, which hold it up when they wait for anything by
    /// themselves: waits until one of the poll(2) events `events` is there for `descriptor`. False
    /// when the call is to end first; it then has no values, and the sentence of such an end. Where
    /// calls cannot be ended it is true at once.
    [[nodiscard]] virtual bool wait_for(int /*descriptor*/, short /*events*/) const { return true; }

    /// False when nothing of an earlier call is left that a later one could find, such as a mail
    /// session.
    [[nodiscard]] virtual bool remembers() const { return true; }
};

}  // namespace host

#endif
