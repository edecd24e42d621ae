#ifndef QUOREL_HOST_MAILSESSION_H
#define QUOREL_HOST_MAILSESSION_H

/// The end of mail sessions when what began them ends first.

#include <chrono>
#include <cstdint>

#include "host/callframe.h"

namespace host {

/// To be told before each call, which `frame` makes of `procedure` for a host's connection
/// `connection`: remembers the mail sessions that may begin, under whatever number. Safe on any
/// thread.
void note_mail_call(const Procedure& procedure, const CallFrame& frame, std::int32_t connection);

/// Stops the mail sessions that a closing connection ever started, those that are still open: QUIT,
/// and the socket closed. Servers that are slow to answer are waited for `patience` in all; the
/// rest goes on in the background, on a thread that ends with the servers' answers, the sessions'
/// time-outs or the process. Where `engine` ends calls they are waited for a second in all, and
/// then ended. Calls no function of SQLite's. Safe on any thread.
inline constexpr std::chrono::seconds longest_farewell{5};
void end_mail_sessions(std::shared_ptr<const Engine> engine, std::int32_t connection,
                       std::chrono::milliseconds patience = longest_farewell);

}  // namespace host

#endif
