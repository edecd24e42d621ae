#include "host/sqlite/interrupt.h"

#include <pthread.h>
#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace host {

namespace {

pthread_t main_thread;
sqlite3* database;
bool ends_when_idle;

std::atomic<CallFrame*> running_call;
std::atomic<bool> running;
std::atomic<bool> pressed;
volatile sig_atomic_t echoed;
static_assert(std::atomic<CallFrame*>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);

// Only async-signal-safe calls; sqlite3_interrupt and CallFrame::cancel set flags.
void on_interrupt(int signal_number) {
    const int saved = errno;
    if (pthread_equal(pthread_self(), main_thread) == 0) {
        pthread_kill(main_thread, signal_number);
    } else if (ends_when_idle && (!running.load() || pressed.load())) {
        signal(signal_number, SIG_DFL);
        raise(signal_number);
    } else {
        pressed.store(true);
        echoed = 1;
        if (CallFrame* call = running_call.load()) call->cancel();
        if (running.load()) sqlite3_interrupt(database);
    }
    errno = saved;
}

void mask_interrupt(int how) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    pthread_sigmask(how, &set, nullptr);
}

}  // namespace

void catch_interrupts(sqlite3* db, bool idle_ends) {
    main_thread = pthread_self();
    database = db;
    ends_when_idle = idle_ends;
    struct sigaction action {};
    // A background job of a script: Ctrl-C is for somebody else.
    if (sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) return;
    action = {};
    action.sa_handler = on_interrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

bool interrupted() {
    return pressed.load();
}

void leave_echoed_line() {
    if (echoed && isatty(STDERR_FILENO) != 0) fputc('\n', stderr);
    echoed = 0;
}

Running::Running() {
    pressed.store(false);
    echoed = 0;
    running.store(true);
}

Running::~Running() {
    running.store(false);
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
