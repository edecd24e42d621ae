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
    const std::pair<const char*, int> rows[] = {
        {"exit 0", 0},      {"exit 255", 255}, {"kill -9 $$", 2},
        {"kill -15 $$", 2}, {"exit 3", 3},     {"no-such-program-anywhere 2>/dev/null", 127},
    };
    for (const auto& [command, code] : rows) EXPECT_EQ(status(code), run(command)) << command;
    EXPECT_EQ((std::set<uint32>{1, 2}), host.asked);
}

TEST_F(CommandShell, runs_commands_of_up_to_8000_bytes_joined_from_their_pieces) {
    const ScratchFolder scratch;
    const std::string out = scratch.file("out");
    const std::string start = "printf %s '";
    const std::string end = "' > " + out;
    const std::string body = std::string(8000 - start.size() - end.size(), 'b');
    for (const uint32 piece : {1U, 4096U, 8000U}) {
        host.piece_size = piece;
        EXPECT_EQ(status(0), run(start + body + end)) << piece;
        EXPECT_EQ(body, bytes_of(out));
        unlink(out.c_str());
        EXPECT_EQ(status(1), run(start + body + 'b' + end)) << piece;
        EXPECT_NE(0, access(out.c_str(), F_OK));
    }
}

TEST_F(CommandShell, answers_1_for_a_command_that_cannot_be_read) {
    EXPECT_EQ(status(1), host.call(xp_cmdshell));
    EXPECT_EQ(status(1), host.give(1, std::nullopt).call(xp_cmdshell));
    host.announced_length = 3;
    EXPECT_EQ(status(1), run("exit 0")) << "longer than announced";
    host.announced_length.reset();
    host.piece_size = 3;
    for (const auto fault : FakeHost::faults) {
        host.good_pieces = 1;
        host.piece_fault = fault;
        EXPECT_EQ(status(1), run("exit 0 # and more"));
    }
    EXPECT_TRUE(host.cancel_records.empty());
}

TEST_F(CommandShell, answers_2_when_there_is_no_child_or_no_wait_status) {
    fork_fails = true;
    EXPECT_EQ(status(2), run("exit 0"));
    fork_fails = false;
    wait_is_interrupted = true;
    EXPECT_EQ(status(2), run("exit 0"));
    wait_is_interrupted = false;
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(status(2), run("exit 0"));
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(CommandShell, can_be_cancelled_from_another_thread) {
    std::thread canceller;
    host.on_set_cancel = [&](void* record) {
        canceller = std::thread([record] { extfn_cancel(record); });
    };
    EXPECT_EQ(status(2), run("exec sleep 60"));
    ASSERT_EQ(1U, host.cancel_records.size());
    canceller.join();
}

TEST_F(CommandShell, cancel_ignores_what_it_does_not_know) {
    EXPECT_EQ(2U, extfn_use_new_api());
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    a_cancel_info record = {static_cast<a_cancel_fn>(1), {}};
    record.handle.cmd_pid = child;
    extfn_cancel(nullptr);
    extfn_cancel(&record);
    record.fn = CANCEL_CMDSHELL;
    for (const pid_t group : {0, -1}) {
        record.handle.cmd_pid = group;
        extfn_cancel(&record);
    }
    EXPECT_EQ(0, group_kills);
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG)) << "the child is gone";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(CommandShell, the_command_has_the_signals_open_that_the_host_blocks) {
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &terminate, nullptr);
    EXPECT_EQ(status(2), run("kill -TERM $$; exit 0"));
    pthread_sigmask(SIG_UNBLOCK, &terminate, nullptr);
}
