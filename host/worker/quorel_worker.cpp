// quorel-worker: the procedure library in a process of its own, for one host.

#include <cstdio>
#include <cstring>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/descendants.h"
#include "host/library.h"
#include "host/startup.h"
#include "host/worker/callserver.h"
#include "host/worker/guard.h"
#include "host/worker/title.h"
#include "host/worker/workerprocess.h"

namespace {

using namespace host;

constexpr const char* usage = R"(usage: quorel-worker

Runs the procedures of libquorel_static.so for one host: quorelsql, xpcall,
quorel-outbox, or the extension for SQLite or PostgreSQL. Hosts start it, people
do not. It ends with its host, and with it all that its procedures have started.
What it shows in ps is the host's name, its process, and the procedure that runs.
)";

// There is one in a process, for the handlers.
CallServer* server;
pid_t guardian;

void cancel_call(int, siginfo_t* info, void*) {
    server->cancel(info->si_value.sival_int);
}

// The guard has ended, which would have ended what this process started.
void follow_guard(int) {
    if (getppid() == guardian) return;
    end_own_descendants();
    _exit(1);
}

// A third line for the command itself, should both processes be killed at once.
void end_with_server() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// SA_RESTART, because a procedure that waits for its command gives up when the wait is interrupted.
void handle_signals() {
    struct sigaction action {};
    sigfillset(&action.sa_mask);
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    action.sa_sigaction = cancel_call;
    sigaction(cancel_signal, &action, nullptr);
    action.sa_flags = SA_RESTART;
    action.sa_handler = follow_guard;
    sigaction(orphan_signal, &action, nullptr);
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, cancel_signal);
    sigaddset(&handled, orphan_signal);
    sigprocmask(SIG_UNBLOCK, &handled, nullptr);
}

std::unique_ptr<const Engine> load(const std::string& path, std::string& error) {
    auto library = std::make_unique<Library>(Library::load(path, error));
    return library->loaded() ? std::move(library) : nullptr;
}

// "quorel-worker for quorelsql[4711]"; /proc has the name with a line end.
std::string name_for(pid_t host) {
    char name[32] = "?";
    const std::string path = "/proc/" + std::to_string(host) + "/comm";
    const Descriptor file = open_file(path.c_str(), O_RDONLY);
    if (file.is_open() && read(file.number(), name, sizeof name - 1) > 0)
        name[strcspn(name, "\n")] = '\0';
    return "quorel-worker for " + std::string(name) + "[" + std::to_string(host) + "]";
}

[[noreturn]] void serve(pid_t host, ProcessTitle title, const std::string& name) {
    become_worker();
    if (getppid() != guardian) _exit(1);
    pthread_atfork(nullptr, nullptr, end_with_server);
    const auto watch = [&title, &name](std::string_view procedure) {
        title.show(std::string(name).append(": ").append(procedure.empty() ? "idle" : procedure));
        // What earlier calls have left behind; a running one waits for its own.
        if (procedure.empty())
            while (waitpid(-1, nullptr, WNOHANG) > 0) {
            }
    };
    static CallServer calls(worker_socket, host, load, watch);
    server = &calls;
    handle_signals();
    calls.run();
    _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && strcmp(argv[1], "--help") == 0) return fputs(usage, stdout) < 0 ? 1 : 0;
    struct stat status {};
    if (argc != 1 || fstat(worker_socket, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        fputs("quorel-worker is started by its hosts; try quorel-worker --help\n", stderr);
        return 2;
    }
    start_program();
    const pid_t host = getppid();
    guardian = getpid();
    become_worker();
    ProcessTitle title(argv[0]);
    const std::string name = name_for(host);
    title.show(name);
    fcntl(worker_socket, F_SETFD, FD_CLOEXEC);
    const pid_t child = fork();
    if (child < 0) return 1;
    if (child == 0) serve(host, title, name);
    guard(child, worker_socket, host);
}
