#ifndef QUOREL_HOST_SQLITE_MAILSESSION_H
#define QUOREL_HOST_SQLITE_MAILSESSION_H

/// The end of a mail session when its SQL connection ends first.

#include <cstdint>

#include "host/library.h"
#include "host/procedures.h"

namespace host {

/// To be told before each call of a procedure by SQL connection `connection`: remembers which ones
/// may have a session. Safe on any thread.
void note_mail_call(const Procedure& procedure, std::int32_t connection);

/// Stops the mail session of a connection that is closing, if one was ever started: QUIT, and its
/// socket closed. A server that is slow to answer is waited for longest_farewell seconds; the rest
/// goes on in the background, on a thread that ends with the server's answer, the session's
/// time-out or the process. Calls no function of SQLite's. Safe on any thread.
void end_mail_session(const Library& library, std::int32_t connection);
inline constexpr int longest_farewell = 5;

}  // namespace host

#endif
