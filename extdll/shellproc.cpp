// xp_cmdshell: one command in the system's shell, waited for, cancellable.

#include <csignal>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#include "extdll/extcall.h"
#include "extdll/procedures.h"

namespace {

constexpr uint32 longest_command = 8000;

enum Status : int32 {
    STATUS_UNREADABLE = 1,  // the command could not be read, or the shell not executed
    STATUS_NO_EXIT = 2      // no child, no wait status, or an end by signal
};

bool read_command(const ExternalCall& call, TextArgument* command) {
    ArgumentPieces pieces(call, 1);
    if (!pieces.first() || pieces.is_null()) return false;
    // A command that is longer than announced is not run cut.
    if (pieces.total_length() < pieces.length() || pieces.total_length() > longest_command) {
        return false;
    }
    return command->join(pieces) == TextArgument::Outcome::Read;
}

void ignore_output_option(const ExternalCall& call) {
    an_extfn_value option;
    call.get_value(2, &option);
}

// Runs in the child. Returns only when the shell could not be executed.
void become_shell(const char* command) {
    // A server's threads often block signals, and a shell keeps the mask that it starts with.
    sigset_t nothing_blocked;
    sigemptyset(&nothing_blocked);
    sigprocmask(SIG_SETMASK, &nothing_blocked, nullptr);
    execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
}

// Without memory for the record the command runs all the same; it only cannot be cancelled.
void register_for_cancel(const ExternalCall& call, pid_t child) {
    auto* const record = static_cast<a_cancel_info*>(malloc(sizeof(a_cancel_info)));
    if (record == nullptr) return;
    record->fn = CANCEL_CMDSHELL;
    record->handle.cmd_pid = child;
    call.set_cancel(record);
}

// Kept: one wait, not repeated on EINTR; an interrupted or impossible wait is STATUS_NO_EXIT.
int32 wait_for(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return STATUS_NO_EXIT;
    return WEXITSTATUS(status);
}

int32 run_command(const ExternalCall& call, const char* command) {
    // Not system(3): it tells nobody which child a cancel must end, and changes what the host does
    // with its signals meanwhile.
    const pid_t child = fork();
    if (child == -1) return STATUS_NO_EXIT;
    if (child == 0) {
        become_shell(command);
        // Kept: a child that could not become the shell returns to the host, which ends it.
        return STATUS_UNREADABLE;
    }
    register_for_cancel(call, child);
    return wait_for(child);
}

}  // namespace

void xp_cmdshell(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    int32 status = STATUS_UNREADABLE;
    {
        TextArgument command;
        if (read_command(call, &command)) {
            ignore_output_option(call);
            status = run_command(call, command.text());
        }
    }
    call.set_status(status);
}
