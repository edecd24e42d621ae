#include "host/xpcall/signals.h"

#include <atomic>
#include <csignal>

namespace host {

namespace {

std::atomic<CallFrame*> running{nullptr};
static_assert(std::atomic<CallFrame*>::is_always_lock_free);

void cancel_running(int signal_number) {
    CallFrame* frame = running.load();
    // Nothing left to cancel, or it did not help: the signal does what it always does.
    if (frame == nullptr || frame->cancelled()) {
        signal(signal_number, SIG_DFL);
        raise(signal_number);
        return;
    }
    frame->cancel();
}

// SA_RESTART, because a procedure that waits for its command gives up when the wait is interrupted.
void handle_signals() {
    struct sigaction action {};
    action.sa_handler = cancel_running;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);  // a second signal finds the first one's work done
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        // What the program was started to ignore stays ignored.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

}  // namespace

CancelledBySignals::CancelledBySignals(CallFrame& frame) {
    running = &frame;
    handle_signals();
}

CancelledBySignals::~CancelledBySignals() {
    running = nullptr;
}

}  // namespace host
