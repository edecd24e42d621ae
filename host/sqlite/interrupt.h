#ifndef QUOREL_HOST_SQLITE_INTERRUPT_H
#define QUOREL_HOST_SQLITE_INTERRUPT_H

/// Ctrl-C in the shell: it cancels what runs, and does not end a shell that a person types in.
///
/// All of it belongs to the main thread; a SIGINT that another thread receives is passed on to it.

#include "host/callframe.h"

struct sqlite3;

namespace host {

/// Takes SIGINT over. While a Running lives, it interrupts `db` (not owned, stays open). At other
/// times it is noted and otherwise ignored, or, with `idle_ends`, it ends the program as usual; so
/// does a second one during the same Running then, when the first did not help. A SIGINT that the
/// program was started to ignore stays ignored.
///
/// Interrupted system calls are restarted: a procedure that waits for its command must not see that
/// a signal came.
void catch_interrupts(sqlite3* db, bool idle_ends);

/// True when Ctrl-C was pressed since the last Running began.
[[nodiscard]] bool interrupted();

/// Begins a new line on the terminal where it has echoed the Ctrl-C as ^C. For whoever prints the
/// first thing after an interrupt.
void leave_echoed_line();

/// A statement runs; forgets earlier interrupts.
class Running {
  public:
    Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running();
};

/// A call runs, which Ctrl-C cancels.
class RunningCall {
  public:
    explicit RunningCall(CallFrame& frame);
    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;
    ~RunningCall();
};

/// Holds SIGINT back while it lives.
class NoInterrupts {
  public:
    NoInterrupts();
    NoInterrupts(const NoInterrupts&) = delete;
    NoInterrupts& operator=(const NoInterrupts&) = delete;
    ~NoInterrupts();
};

}  // namespace host

#endif
