#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "extdll/procedures.h"
#include "tests/extdll/fakehost.h"
#include "tests/scratch.h"

namespace {

bool fork_fails = false;
bool wait_is_interrupted = false;
int group_kills = 0;

std::vector<SetCall> status(int32 value) {
    return {status_call(value)};
}

class CommandShell : public testing::Test {
  protected:
    void TearDown() override { fork_fails = wait_is_interrupted = false; }

    std::vector<SetCall> run(const std::string& command) {
        return host.give(1, command).call(xp_cmdshell);
    }

    FakeHost host;
};

}  // namespace

extern "C" {
// The test's own process group, and every process of the machine, are among what a faulty cancel
// would signal, so such a call only gets counted.
int __real_kill(pid_t, int);
int __wrap_kill(pid_t process, int signal) {
    if (process > 0) return __real_kill(process, signal);
    ++group_kills;
    return 0;
}
pid_t __real_fork();
pid_t __real_waitpid(pid_t, int*, int);
pid_t __wrap_fork() {
    if (!fork_fails) return __real_fork();
    errno = EAGAIN;
    return -1;
}
pid_t __wrap_waitpid(pid_t child, int* status, int options) {
    const pid_t result = __real_waitpid(child, status, options);
    if (!wait_is_interrupted) return result;
    errno = EINTR;
    return -1;
}
}

TEST_F(CommandShell, returns_the_exit_status_and_2_for_an_end_by_signal) {
    EXPECT_EQ(run("exit 0"), status(0));
    EXPECT_EQ(run("exit 3"), status(3));
    EXPECT_EQ(run("exit 255"), status(255));
    EXPECT_EQ(run("kill -9 $$"), status(2));
    EXPECT_EQ(run("kill -15 $$"), status(2));
    EXPECT_EQ(run("no-such-program-anywhere 2>/dev/null"), status(127));
    EXPECT_EQ(host.asked, (std::set<uint32>{1, 2}));
}

TEST_F(CommandShell, runs_commands_of_up_to_8000_bytes_joined_from_their_pieces) {
    const ScratchFolder scratch;
    const std::string out = scratch.file("out");
    const std::string start = "printf %s '";
    const std::string end = "' > " + out;
    const std::string body = std::string(8000 - start.size() - end.size(), 'b');
    for (const uint32 piece : {1U, 4096U, 8000U}) {
        host.piece_size = piece;
        EXPECT_EQ(run(start + body + end), status(0)) << piece;
        EXPECT_EQ(bytes_of(out), body);
        unlink(out.c_str());
        EXPECT_EQ(run(start + body + 'b' + end), status(1)) << piece;
        EXPECT_NE(access(out.c_str(), F_OK), 0);
    }
}

TEST_F(CommandShell, answers_1_for_a_command_that_cannot_be_read) {
    EXPECT_EQ(host.call(xp_cmdshell), status(1));
    EXPECT_EQ(host.give(1, std::nullopt).call(xp_cmdshell), status(1));
    host.announced_length = 3;
    EXPECT_EQ(run("exit 0"), status(1)) << "longer than announced";
    host.announced_length = 4;
    host.piece_size = 3;
    EXPECT_EQ(run("exit 0"), status(1)) << "a later piece longer than announced";
    host.announced_length.reset();
    for (const auto fault :
         {FakeHost::Fault::Refused, FakeHost::Fault::Empty, FakeHost::Fault::Null}) {
        host.good_pieces = 1;
        host.piece_fault = fault;
        EXPECT_EQ(run("exit 0 # and more"), status(1));
    }
    EXPECT_TRUE(host.cancel_records.empty());
}

TEST_F(CommandShell, answers_2_when_there_is_no_child_or_no_wait_status) {
    fork_fails = true;
    EXPECT_EQ(run("exit 0"), status(2));
    fork_fails = false;
    wait_is_interrupted = true;
    EXPECT_EQ(run("exit 0"), status(2));
    wait_is_interrupted = false;
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(run("exit 0"), status(2));
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(CommandShell, a_cancel_from_another_thread_ends_the_command) {
    std::atomic<void*> registered = nullptr;
    std::thread canceller([&] {
        while (registered == nullptr) std::this_thread::yield();
        if (registered != &host) extfn_cancel(registered);
    });
    host.on_set_cancel = [&](void* record) { registered = record; };
    EXPECT_EQ(run("exec sleep 60"), status(2));
    if (registered == nullptr) registered = &host;  // releases a canceller that got no record
    canceller.join();
    ASSERT_EQ(host.cancel_records.size(), 1U);
}

TEST_F(CommandShell, cancel_ignores_what_it_does_not_know) {
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    a_cancel_info other = {static_cast<a_cancel_fn>(1), {}};
    other.handle.cmd_pid = child;
    extfn_cancel(&other);
    extfn_cancel(nullptr);
    for (const pid_t group : {0, -1}) {
        a_cancel_info bad = {CANCEL_CMDSHELL, {}};
        bad.handle.cmd_pid = group;
        extfn_cancel(&bad);
    }
    EXPECT_EQ(group_kills, 0);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "the child is gone";
    other.fn = CANCEL_CMDSHELL;
    extfn_cancel(&other);
    int ended = 0;
    waitpid(child, &ended, 0);
    EXPECT_TRUE(WIFSIGNALED(ended) && WTERMSIG(ended) == SIGKILL);
    EXPECT_EQ(extfn_use_new_api(), 2U);
}

TEST_F(CommandShell, the_command_has_the_signals_open_that_the_host_blocks) {
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &terminate, nullptr);
    EXPECT_EQ(run("kill -TERM $$; exit 0"), status(2));
    pthread_sigmask(SIG_UNBLOCK, &terminate, nullptr);
}

TEST_F(CommandShell, a_child_without_shell_comes_back_to_the_host_with_status_1) {
    // More environment than the system takes makes the shell impossible to execute.
    setenv("QUOREL_TOO_LONG", std::string(200000, 'x').c_str(), 1);
    const pid_t parent = getpid();
    host.on_set = [&] {
        if (getpid() != parent) _exit(host.incoming == status_call(1) ? 77 : 78);
    };
    EXPECT_EQ(run("exit 0"), status(77));
    unsetenv("QUOREL_TOO_LONG");
}
