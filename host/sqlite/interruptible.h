#ifndef QUOREL_HOST_SQLITE_INTERRUPTIBLE_H
#define QUOREL_HOST_SQLITE_INTERRUPTIBLE_H

/// sqlite3_interrupt while a procedure runs.

#include <string>

#include "host/callframe.h"
#include "host/sqlite/query.h"

namespace host {

/// Tells whether the statement that calls a function has been interrupted. An interrupt hits every
/// statement of the connection, so a trivial one is stepped, which every version of SQLite lets us
/// do. A trace callback of the program's sees that SELECT 1 with each question. For the thread that
/// runs the statement, while it runs.
class InterruptProbe {
  public:
    explicit InterruptProbe(sqlite3* db);

    /// True once the statement is interrupted, and from then on.
    bool interrupted();

  private:
    bool _interrupted = false;
    PreparedStatement _statement;
};

/// Runs the call on a thread of its own, with every signal blocked there, and cancels it when `db`
/// is interrupted. Returns when the call has ended, interrupted or not, what CallFrame::call
/// returned; frame.cancelled() tells of an interrupt. The connection is used by the calling thread
/// alone. Where no thread can be had, the call runs on the calling thread and is not interrupted.
bool call_interruptibly(sqlite3* db, CallFrame& frame, std::string& error);

}  // namespace host

#endif
