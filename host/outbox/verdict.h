#ifndef QUOREL_HOST_OUTBOX_VERDICT_H
#define QUOREL_HOST_OUTBOX_VERDICT_H

/// What the end of a call means for the message, for its session and for the mail server.

#include <cstdint>
#include <optional>

namespace host::outbox {

/// What is done with a message next.
enum class Next {
    Sent,   ///< nothing: the mail server has it
    Again,  ///< another try, with the next account or after a pause
    Split   ///< its recipients are tried in two halves; a single one is refused for good
};

/// What it says about the account's mail server.
enum class Server {
    Well,      ///< it answers, or was not asked
    Refusing,  ///< it may be the message, if it was refused before; else as Doubtful
    Doubtful,  ///< this message did not go; after several in a row it counts as away
    Away       ///< no message would go now
};

struct Verdict {
    Next next;
    Server server;
    bool keeps_session;  ///< it serves the next message too
};

/// The status that a procedure gave; nothing where it did not return: the worker died, or the
/// deadline was over.
using CallStatus = std::optional<std::int32_t>;

/// The end of xp_startsmtp, where Next::Sent is an open session.
[[nodiscard]] Verdict verdict_on_start(CallStatus status);

/// The end of xp_sendmail with a message as the composer makes it.
[[nodiscard]] Verdict verdict_on_sending(CallStatus status);

}  // namespace host::outbox

#endif
