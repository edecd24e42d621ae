#ifndef QUOREL_HOST_WORKER_CALLDRIVER_H
#define QUOREL_HOST_WORKER_CALLDRIVER_H

/// The host's side of the conversation.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/worker/framesocket.h"
#include "host/worker/sharedpieces.h"

namespace host {

/// How far a conversation got.
enum class Talk {
    Done,    ///< the procedure has returned
    Failed,  ///< the worker says why it did nothing
    Ended,   ///< the worker has ended
    Broken,  ///< the worker sent what it may not send
    GaveUp   ///< the socket's Wait gave up, or the caller
};

/// Says hello to a worker that has just begun, which loads the library at `path`. Failed: `error`
/// is its sentence.
Talk greet(FrameSocket& socket, std::string_view path, const SharedPieces& shared,
           std::string& error);

/// One call, made through a socket with the callbacks that the procedure would use.
class CallDriver {
  public:
    /// `go_on` is asked with each frame; false gives up.
    CallDriver(FrameSocket& socket, const SharedPieces& shared, an_extfn_api& api, void* handle,
               std::function<bool()> go_on)
        : _socket(socket), _shared(shared), _api(api), _handle(handle), _go_on(std::move(go_on)) {}

    /// Call number `number` of `procedure`, in `folder` unless it is empty.
    Talk run(std::uint32_t number, std::string_view procedure, std::string_view folder,
             std::string& error);

    /// After run(): the int32 that the procedure gave last as its result.
    [[nodiscard]] std::optional<std::int32_t> status() const { return _status; }
    /// After run(): what the procedure waited for was cancelled.
    [[nodiscard]] bool was_cancelled() const { return _was_cancelled; }

  private:
    bool _ask(std::uint32_t number, std::string_view procedure, std::string_view folder,
              std::string& error);
    bool _give(const Frame& want);
    void _take(const Frame& set);
    bool _take_shared(const Frame& share);
    void _settle();

    FrameSocket& _socket;
    const SharedPieces& _shared;
    an_extfn_api& _api;
    void* const _handle;
    const std::function<bool()> _go_on;
    std::optional<std::int32_t> _status;
    bool _was_cancelled = false;
    // The types of those values whose last piece was refused, and so what is added to them. By
    // number, 0 being the result; there are no others.
    std::vector<std::optional<a_sql_data_type>> _refused;
};

}  // namespace host

#endif
