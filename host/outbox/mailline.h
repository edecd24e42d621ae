#ifndef QUOREL_HOST_OUTBOX_MAILLINE_H
#define QUOREL_HOST_OUTBOX_MAILLINE_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/compose/composer.h"
#include "host/engine.h"
#include "host/outbox/store.h"
#include "host/outbox/verdict.h"

namespace host {
struct Procedure;
class CallFrame;
}  // namespace host

namespace host::outbox {

/// How a call of the library ended.
struct Called {
    enum class How {
        Refused,  ///< it was not made, and never will be with these arguments
        NotMade,  ///< this machine could not make it
        Ended,    ///< it did not return
        Returned
    };
    How how = How::Refused;
    std::int32_t status = 0;  ///< where it returned
    std::string words;        ///< what that means

    [[nodiscard]] CallStatus returned() const {
        return how == How::Returned ? CallStatus(status) : std::nullopt;
    }
};

/// The mail session that one thread keeps open from message to message. For one thread.
class MailLine {
  public:
    /// `engine` is this object's alone and outlives it; every call in it can be ended.
    explicit MailLine(const Engine& engine) : _engine(engine) {}
    MailLine(const MailLine&) = delete;
    MailLine& operator=(const MailLine&) = delete;
    ~MailLine() { close(); }

    /// Asked every so often on the calling thread while a call waits; true ends the call.
    Engine::Interrupted on_wait;

    /// Whether a session is open with the account as it is now, for the sender of `mail`: the
    /// library sends all messages of a session from one sender.
    [[nodiscard]] bool is_open_for(const Account& account, const ComposedMail& mail) const;
    [[nodiscard]] bool is_open() const { return _open.has_value(); }
    /// Opens one, in place of what is open. A password file is read here.
    Called open(const Account& account, const ComposedMail& mail);
    /// Sends to these of the recipients, or all. What the message takes in memory goes while it is
    /// sent: a large one is not in two processes at once.
    Called send(ComposedMail& mail, const std::vector<std::string>& recipients);
    /// Says good-bye, for a second at most.
    void close();
    /// Forgets the session, whose server is not to be talked to any more.
    void drop();

  private:
    struct Open {
        Account account;
        std::string sender;
        std::string sender_name;
    };
    Called _call(CallFrame& frame, const Procedure& procedure);

    const Engine& _engine;
    std::optional<Open> _open;
};

}  // namespace host::outbox

#endif
