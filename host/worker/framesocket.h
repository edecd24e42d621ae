#ifndef QUOREL_HOST_WORKER_FRAMESOCKET_H
#define QUOREL_HOST_WORKER_FRAMESOCKET_H

#include <array>
#include <functional>
#include <string>

#include <sys/uio.h>

#include "host/worker/frames.h"
#include "host/worker/spin.h"

namespace host {

/// One end of the socket between a host and its worker, as a sequence of frames. For one thread at
/// a time. Raises no SIGPIPE.
class FrameSocket {
  public:
    /// Waits until one of the poll(2) events `events` is there; false: gives up.
    using Wait = std::function<bool(short events)>;

    enum class Received {
        Frame,
        Nothing,  ///< receive_if_there() alone: there is none
        End,      ///< the other side has ended
        Broken,   ///< the other side sent what it may not send
        GaveUp    ///< Wait did; nothing sensible can be received any more
    };

    /// `descriptor` is not owned. Without `wait` calls block as long as it takes.
    FrameSocket(int descriptor, Sender other_side, Wait wait = {})
        : _descriptor(descriptor), _other_side(other_side), _wait(std::move(wait)) {}
    FrameSocket(const FrameSocket&) = delete;
    FrameSocket& operator=(const FrameSocket&) = delete;

    /// Sends what is held and then this frame. False when the other side has ended or Wait gave up.
    bool send(const Frame& frame);

    /// The same, but a short frame may be held until the next send(), to go along with it.
    bool hold(const Frame& frame);

    /// The next frame, whose payload lasts until the next one that has a payload.
    Received receive(Frame& frame);
    Received receive_if_there(Frame& frame);

    /// Overwrites all payloads that were received: a password may have been among them.
    void forget();

  private:
    static constexpr std::size_t longest_held = 4096;

    bool _leave();
    bool _send_all(iovec* parts, std::size_t count);
    Received _read(char* bytes, std::size_t most, std::size_t& count);
    Received _fill(char* bytes, std::size_t count);

    const int _descriptor;
    const Sender _other_side;
    const Wait _wait;
    Spin _spin;
    std::string _held;
    // Short frames come several at a time; long payloads go where they belong.
    std::array<char, 4096> _ahead;
    std::size_t _ahead_begin = 0;
    std::size_t _ahead_end = 0;
    std::array<char, longest_payload> _payload;
    std::size_t _used = 0;  // of _payload since forget()
};

}  // namespace host

#endif
