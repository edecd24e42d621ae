#include "host/sqlite/shell/signals.h"

#include <atomic>
#include <cerrno>
#include <cstdio>

#include <pthread.h>
#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

namespace host {

namespace {

pthread_t main_thread;
sqlite3* database;
bool ends_when_idle;
bool takes_interrupts;
int depth;  // of Runnings

std::atomic<CallFrame*> running_call;
std::atomic<bool> running;
std::atomic<bool> pressed;
volatile sig_atomic_t echoed;
volatile sig_atomic_t ending;   // the signal that ends the program once nothing runs
volatile sig_atomic_t alarmed;  // one alarm has come since
static_assert(std::atomic<CallFrame*>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);

// The handlers make only async-signal-safe calls; sqlite3_interrupt and CallFrame::cancel set flags
// and send a signal.
void cancel_what_runs() {
    pressed.store(true);
    if (CallFrame* call = running_call.load()) call->cancel();
    if (running.load()) sqlite3_interrupt(database);
}

// Ends the program as the signal does that nobody handles.
void end_by(int signal_number) {
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

// Cancels what runs, so that the end of the program leaves no command of its behind. Who waits for
// something else is not waited for. An interrupt is lost on a statement that is about to begin, so
// the first alarm brings another one. Further signals hasten nothing: whoever sends one may well
// send several at once, and a command takes a moment to end.
void end_soon(int signal_number) {
    constexpr unsigned interval = 1;  // second
    if (ending != 0 && signal_number != SIGALRM) return;
    if (alarmed) return end_by(ending);
    alarmed = ending != 0;
    if (ending == 0) ending = signal_number;
    cancel_what_runs();
    alarm(interval);
}

void on_signal(int signal_number) {
    const int saved = errno;
    const bool cancels = signal_number == SIGINT && !(ends_when_idle && pressed.load());
    if (pthread_equal(pthread_self(), main_thread) == 0) {
        pthread_kill(main_thread, signal_number);
    } else if (!running.load() && (signal_number != SIGINT || ends_when_idle)) {
        end_by(signal_number);
    } else if (cancels) {
        echoed = 1;
        cancel_what_runs();
    } else {
        end_soon(signal_number);
    }
    errno = saved;
}

void mask_interrupt(int how) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    pthread_sigmask(how, &set, nullptr);
}

// A signal that the program was started to ignore is for somebody else: a background job of a
// script is not Ctrl-C's, nor is one under nohup SIGHUP's.
bool handle(int signal_number) {
    struct sigaction action {};
    if (sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
        return false;
    action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);  // a second signal finds the first one's work done
    return sigaction(signal_number, &action, nullptr) == 0;
}

}  // namespace

void catch_signals(sqlite3* db, bool idle_ends) {
    main_thread = pthread_self();
    database = db;
    ends_when_idle = idle_ends;
    takes_interrupts = handle(SIGINT);
    signal(SIGALRM, SIG_DFL);  // nobody else's
    for (const int signal_number : {SIGTERM, SIGHUP, SIGALRM}) handle(signal_number);
}

bool can_interrupt() {
    return takes_interrupts;
}

bool interrupted() {
    return pressed.load();
}

void leave_echoed_line() {
    if (echoed && isatty(STDERR_FILENO) != 0) fputc('\n', stderr);
    echoed = 0;
}

Running::Running() {
    if (depth++ > 0) return;
    pressed.store(false);
    echoed = 0;
    running.store(true);
}

Running::~Running() {
    if (--depth == 0) running.store(false);
    if (ending != 0) end_by(ending);
}

RunningCall::RunningCall(CallFrame& frame) {
    running_call.store(&frame);
}

RunningCall::~RunningCall() {
    running_call.store(nullptr);
}

NoInterrupts::NoInterrupts() {
    mask_interrupt(SIG_BLOCK);
}

NoInterrupts::~NoInterrupts() {
    mask_interrupt(SIG_UNBLOCK);
}

}  // namespace host
