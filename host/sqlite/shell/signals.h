#ifndef QUOREL_HOST_SQLITE_SHELL_SIGNALS_H
#define QUOREL_HOST_SQLITE_SHELL_SIGNALS_H

/// Signals to the shell. Ctrl-C cancels what runs, and does not end a shell that a person types in;
/// what ends the shell leaves no command behind that it runs.
///
/// All of it belongs to the main thread; a signal that another thread receives is passed on to it.

#include "host/callframe.h"

struct sqlite3;

namespace host {

/// Takes SIGINT over. While a Running lives, it interrupts `db` (not owned, stays open). At other
/// times it is noted and otherwise ignored, or, with `idle_ends`, it ends the program as usual.
///
/// SIGTERM and SIGHUP, and with `idle_ends` a second SIGINT during the same Running, cancel what
/// runs and then end the program as usual: at the end of the Running, or after two seconds. A
/// signal that the program was started to ignore stays ignored.
///
/// Interrupted system calls are restarted: a procedure that waits for its command must not see that
/// a signal came.
void catch_signals(sqlite3* db, bool idle_ends);

/// False when SIGINT was left as it was: the program was started to ignore it.
[[nodiscard]] bool can_interrupt();

/// True when Ctrl-C was pressed since the last Running began.
[[nodiscard]] bool interrupted();

/// Begins a new line on the terminal where it has echoed the Ctrl-C as ^C. For whoever prints the
/// first thing after an interrupt.
void leave_echoed_line();

/// A statement runs; forgets earlier interrupts. At its end the program ends, if a signal said so.
/// One inside another is a part of it: a script's statement, which ends with the script.
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
