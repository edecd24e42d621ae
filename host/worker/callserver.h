#ifndef QUOREL_HOST_WORKER_CALLSERVER_H
#define QUOREL_HOST_WORKER_CALLSERVER_H

/// The worker's side of the conversation.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/cancelrecord.h"
#include "host/engine.h"
#include "host/worker/framesocket.h"
#include "host/worker/sharedpieces.h"

namespace host {

/// Makes the calls that a host asks for, one after another, on one thread.
class CallServer {
  public:
    /// The library at `path`; null with a sentence in `error`.
    using Load =
        std::function<std::unique_ptr<const Engine>(const std::string& path, std::string& error)>;
    /// Hears which procedure runs now; none: its name is empty.
    using Watch = std::function<void(std::string_view procedure)>;

    /// `socket` is not owned; process `host` has its other end.
    CallServer(int socket, pid_t host, Load load, Watch watch)
        : _socket(socket, Sender::Host), _host(host), _load(std::move(load)),
          _watch(std::move(watch)) {}

    /// Serves until the host ends, or says what it may not say.
    void run();

    /// Cancels the call of this number, when it runs: the host's signal may overtake its Call.
    /// Async-signal-safe, on the thread of run().
    void cancel(int number) {
        _cancelled.store(number);
        if (CancelRecord* const record = _record.load(); record != nullptr && number == _number)
            record->cancel();
    }

  private:
    struct Callbacks;  // of a running call

    bool _greet();
    bool _serve(const Frame& call);
    bool _make_call(std::string& error);
    void _forget();
    void _own(void* cancel_record);
    bool _enter(std::string_view folder, std::string& error) const;

    bool _read(std::uint32_t number, an_extfn_value& value);
    bool _read_on(std::uint32_t number, std::uint32_t offset, an_extfn_value& value);
    bool _fetch(std::uint32_t number, std::uint32_t offset, Frame& piece);
    bool _next_piece(Frame& piece);
    bool _leave_batch();
    bool _write(std::uint32_t number, const an_extfn_value& value, bool append);
    bool _pass(Frame set, std::string_view bytes);
    bool _share(const Frame& set, std::string_view bytes);
    bool _find_slot();
    bool _send_slot();
    void _note(const Frame& frame);
    bool _listen();
    [[nodiscard]] const SentArgument* _argument(std::uint32_t number) const;
    void _end_stray_child() const;

    FrameSocket _socket;
    const pid_t _host;
    const Load _load;
    const Watch _watch;
    std::unique_ptr<const Engine> _engine;

    std::string _payload;  // of the running call, into which _request points
    CallRequest _request;
    int _number = 0;
    int _process = 0;           // that serves
    bool _cancellable = false;  // the procedure has registered what it waits for
    bool _was_cancelled = false;
    bool _lost = false;          // the host has ended, or is not understood
    std::vector<bool> _refused;  // by number: the value's last piece, and so what is added to it
    // Pieces of a result on their way into a slot: the frame that will tell of them.
    SharedPieces _shared;
    std::uint32_t _free_slots = (1U << SharedPieces::slots) - 1;
    Frame _filling;
    std::uint32_t _filled = 0;  // 0: none
    // The pieces that answer a Want, as long as there are more to come.
    bool _batch_open = false;
    std::uint32_t _batch_number = 0;
    std::uint32_t _batch_offset = 0;  // of the next one
    std::atomic<CancelRecord*> _record{nullptr};
    std::atomic<int> _cancelled{0};  // the call that was cancelled last
};

}  // namespace host

#endif
