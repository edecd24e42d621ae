#ifndef QUOREL_HOST_CALLFRAME_H
#define QUOREL_HOST_CALLFRAME_H

/// The server's side of one procedure call: arguments in, values out, cancellation.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/engine.h"
#include "host/procedures.h"
#include "host/value.h"

namespace host {

/// One call. Make one, give it its arguments, run it once, read what came back.
///
/// Threads: one thread sets up, calls and reads; cancel() alone may be called from any other
/// thread, and from a signal handler, at any time in the object's life.
class CallFrame {
  public:
    /// Reads run in pieces of this many bytes, so that a long argument arrives as a server sends
    /// it.
    static constexpr std::uint32_t default_piece = 32768;

    /// `procedure` and `engine` are not owned and outlive the frame. `connection` is what a
    /// parameter with Absent::Connection receives. Every parameter starts as its `absent` rule
    /// says.
    CallFrame(const Engine& engine, const Procedure& procedure, std::int32_t connection,
              std::uint32_t piece_size = default_piece);
    CallFrame(const CallFrame&) = delete;
    CallFrame& operator=(const CallFrame&) = delete;
    ~CallFrame();

    /// Gives IN parameter `number` its value, with the declared type in place of the value's own. A
    /// number argument given to a string parameter arrives as its decimal text and the other way
    /// round. False with a sentence in `error` when there is no such parameter, it is an OUT
    /// parameter, text is no number where a number is called for, it is not what the parameter's
    /// `content` asks for, or the number of the connection is NULL.
    bool set_argument(std::uint32_t number, Value value, std::string& error);

    /// The same for a long value that the caller keeps: `bytes` is not copied and stays readable
    /// until the frame is gone.
    bool lend_argument(std::uint32_t number, std::string_view bytes, std::string& error);

    /// Called on the procedure's thread after each piece that moves (`moved`: bytes of arguments,
    /// but for files' names, read and results written so far), for progress displays.
    std::function<void(std::uint64_t moved)> on_progress;

    /// When set, receives the pieces of the result in place of result(), which then holds an empty
    /// value once a piece came, or NULL when that is how the procedure ended; returning false
    /// refuses the piece, as a server does that has had enough. `append` false starts anew.
    std::function<bool(const void* data, std::uint32_t length, bool append)> on_result;

    /// When set, asked on the calling thread while an engine that ends_calls() waits; true cancels.
    Engine::Interrupted on_wait;

    /// Runs the procedure. False, with a sentence in `error` that says what to do, when a required
    /// argument is missing, a NULL stands before the last of repeated values, the procedure's rules
    /// refuse the arguments as they are together, or the library does not export the procedure;
    /// nothing was called then and result() is empty. False also when the procedure gave 0 and a
    /// file shows that not all was done; result() is that 0. And when the engine ended the call,
    /// which leaves no values.
    bool call(std::string& error);

    /// Why call() gave false.
    enum class Failure {
        None,
        Arguments,  ///< their rules refused them, before anything was called
        NotCalled,  ///< there is no procedure to call, or nothing that could run it
        Ended,      ///< the engine ended the call, or died
        TooLong,    ///< the engine ended it at its deadline
        Doubtful    ///< the procedure gave 0, and a file speaks against it
    };
    [[nodiscard]] Failure failure() const;

    /// After call(): the procedure was called, whatever became of it.
    [[nodiscard]] bool was_called() const;

    /// The connection number that the procedure receives; nothing where it takes none.
    [[nodiscard]] std::optional<std::int32_t> connection() const;

    /// After call(): a sentence for the person who made it, about something that was done as asked
    /// and should not be taken for more than it is. Mostly empty.
    [[nodiscard]] const std::string& warning() const;

    /// Ends what the running call waits for: a command with all that it started, or anything where
    /// the engine ends_calls(). A cancel that comes before the call reaches a cancellable point
    /// takes effect there. Harmless when nothing is running.
    void cancel();
    [[nodiscard]] bool cancelled() const;

    /// What the procedure set: nothing when it set no value at all. All that a frame keeps together
    /// is not longer than most_kept bytes; a piece beyond is refused, as a server does that has had
    /// enough. What may be longer is for on_result.
    static constexpr std::size_t most_kept = std::size_t{16} << 20;
    [[nodiscard]] const std::optional<Value>& result() const;
    [[nodiscard]] const std::optional<Value>& out(std::uint32_t number) const;

  private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace host

#endif
