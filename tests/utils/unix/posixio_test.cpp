#include "utils/unix/posixio.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/scratch.h"
#include "tests/wrapped.h"
#include "utils/unix/utdescriptor.h"

// Each wrapped system call asks the plan first: a negative answer fails it with that errno, a
// positive one limits its length, 0 lets it pass.
namespace {

std::function<int()> plan;
int open_flags = 0;  // of the last open

// Fails `times` calls with `error`, then lets `length` bytes at a time pass (0: all).
void plan_faults(int times, int error, int length = 0) {
    plan = [=]() mutable { return times-- > 0 ? -error : length; };
}

constexpr utimbuf after_2038{4000000000, 4000000001};

class Posixio : public testing::Test {
  protected:
    void TearDown() override { plan = nullptr; }
    ScratchFolder scratch;
};

template <class Call>
auto interposed(std::size_t* length, Call call) -> decltype(call()) {
    const int step = plan ? plan() : 0;
    if (step < 0) return errno = -step, -1;
    if (length != nullptr && step > 0) *length = std::min<std::size_t>(*length, step);
    return call();
}

}  // namespace

// A call that moves bytes, of which `length` may be cut, and one that does not.
#define TRANSFER(name, parameters, arguments)                                \
    ssize_t __real_##name parameters;                                        \
    ssize_t __wrap_##name parameters {                                       \
        return interposed(&length, [&] { return __real_##name arguments; }); \
    }
#define INTERPOSED(name, parameters, arguments)                              \
    int __real_##name parameters;                                            \
    int __wrap_##name parameters {                                           \
        return interposed(nullptr, [&] { return __real_##name arguments; }); \
    }

extern "C" {
TRANSFER(read, (int fd, void* buffer, size_t length), (fd, buffer, length))
TRANSFER(write, (int fd, const void* buffer, size_t length), (fd, buffer, length))
TRANSFER(pread64, (int fd, void* buffer, size_t length, off64_t at), (fd, buffer, length, at))
TRANSFER(pwrite64, (int fd, const void* buffer, size_t length, off64_t at),
         (fd, buffer, length, at))
INTERPOSED(close, (int fd), (fd))
INTERPOSED(fdatasync, (int fd), (fd))
INTERPOSED(fsync, (int fd), (fd))
INTERPOSED(ftruncate64, (int fd, off64_t length), (fd, length))
INTERPOSED(lockf64, (int fd, int command, off64_t length), (fd, command, length))
INTERPOSED(stat64, (const char* path, struct stat64* found), (path, found))
INTERPOSED(truncate64, (const char* path, off64_t length), (path, length))

int __real_open64(const char*, int, mode_t);
int __wrap_open64(const char* path, int flags, mode_t mode) {
    open_flags = flags;
    return interposed(nullptr, [&] { return __real_open64(path, flags, mode); });
}
}

// Each on a file and its descriptor, in an order in which one shows what another did, and on a path
// and a descriptor that are none.
const struct {
    const char* name;
    int (*call)(const char* path, int fd);
} other_calls[] = {
    {"access", [](const char* at, int) { return _posix_access(at, R_OK); }},
    {"chmod", [](const char* at, int) { return _posix_chmod(at, 0640); }},
    {"truncate", [](const char* at, int) { return _posix_truncate(at, int64{1} << 32); }},
    {"ftruncate",
     [](const char*, int at) { return _posix_ftruncate(at, _posix_filelength(at) + 4); }},
    {"fsync", [](const char*, int at) { return _posix_fsync(at); }},
    {"fdatasync", [](const char*, int at) { return _posix_fdatasync(at); }},
    {"lockf", [](const char*, int at) { return _posix_lockf(at, F_TLOCK, 0); }},
    {"utime", [](const char* at, int) { return _posix_utime(at, &after_2038); }},
    {"rename", [](const char* at, int) { return _posix_rename(at, "file-2"); }},
    {"unlink", [](const char* at, int) { return _posix_unlink(at[0] == '/' ? at : "file-2"); }},
    {"mkdir", [](const char* at, int) { return _posix_mkdir(at, 0700); }},
    {"chdir", [](const char* at, int) { return _posix_chdir(at); }},
};

TEST_F(Posixio, every_other_call_has_its_effect_through_interruptions_and_reports_its_failure) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.file(""));
    const UTDescriptor file(_posix_open(scratch.file_with("file", "abcdef").c_str(), O_RDWR, 0));
    for (const auto& [name, call] : other_calls) {
        SCOPED_TRACE(name);
        plan_faults(2, EINTR);
        EXPECT_EQ(0, call("file", file.get()));
        EXPECT_EQ(-1, call("/none/x", -1));
        EXPECT_TRUE(errno == ENOENT || errno == EBADF) << errno;
    }
    std::filesystem::current_path(before);
    a_posix_statbuf found;
    EXPECT_EQ(0, _posix_fstat(file.get(), &found));
    EXPECT_EQ(mode_t{S_IFREG | 0640}, found.pst_mode);
    EXPECT_EQ((uint64{1} << 32) + 4, found.pst_size);
    EXPECT_EQ(after_2038.modtime, found.pst_mtime);
}

TEST_F(Posixio, completes_transfers_through_interruptions_and_short_counts) {
    const std::string path = scratch.file("data"), bytes = pattern(32768) + "end";
    std::string back(40000, 'x');
    plan_faults(3, EINTR);
    const int fd = _posix_open(path.c_str(), O_RDWR | O_CREAT, 0600);
    plan_faults(2, EINTR, 100);
    EXPECT_EQ(32768, _posix_write(fd, bytes.data(), 32768));
    plan_faults(2, EINTR, 2);
    EXPECT_EQ(3, _posix_pwrite(fd, "end", 3, 32768));
    EXPECT_EQ(0, _posix_lseek(fd, 0, SEEK_SET));
    plan_faults(2, EINTR, 100);
    EXPECT_EQ(32771, _posix_read(fd, back.data(), back.size()));
    EXPECT_EQ(bytes, back.substr(0, 32771));
    plan_faults(2, EINTR, 7);
    EXPECT_EQ(11, _posix_pread(fd, back.data(), 100, 32760));
    EXPECT_EQ(bytes.substr(32760), back.substr(0, 11));
    a_posix_statbuf found = {};
    plan_faults(3, EINTR);
    EXPECT_EQ(0, _posix_stat(path.c_str(), &found));
    EXPECT_EQ(32771U, found.pst_size);
    EXPECT_EQ(mode_t{S_IFREG | 0600}, found.pst_mode);

    plan_faults(2, EIO);
    EXPECT_TRUE(_posix_read(fd, back.data(), 1) == -1 && errno == EIO);
    EXPECT_TRUE(_posix_write(fd, "x", 1) == -1 && errno == EIO);
    plan_faults(1, EIO);
    EXPECT_TRUE(_posix_read(fd, back.data(), 0) == 0 && _posix_write(fd, "x", 0) == 0);
    EXPECT_EQ(-EIO, plan()) << "a system call was made for length 0";
    plan_faults(1, EINTR);
    EXPECT_EQ(0, _posix_close(fd));
}

TEST_F(Posixio, every_open_is_close_on_exec_and_takes_no_terminal_from_the_start) {
    const std::string path = scratch.file("data");
    const auto opened = [](int flags, int fd) {
        EXPECT_EQ(flags | O_CLOEXEC | O_NOCTTY, open_flags);
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
        return fd;
    };
    const char* const at = path.c_str();
    constexpr int create = O_CREAT | O_TRUNC;
    _posix_close(opened(O_WRONLY | create, _posix_creat(at, 0600)));
    _posix_close(opened(O_RDONLY, _posix_open(at, O_RDONLY, 0)));
    _posix_close(opened(O_RDWR, _posix_sopen(at, O_RDWR, POSIX_SHARE_NONE, 0)));
    std::FILE* const stream = _posix_fopen(at, "rb+");
    ASSERT_NE(nullptr, stream);
    opened(O_RDWR, fileno(stream));
    fclose(stream);
    EXPECT_TRUE(_posix_fopen(at, "wx") == nullptr && errno == EEXIST);
    EXPECT_TRUE(_posix_fopen(at, "r,ccs=UTF-8") == nullptr && errno == EINVAL);
}

bool is_pending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

void write_to_a_broken_pipe() {
    int pipe_ends[2];
    ASSERT_EQ(0, pipe(pipe_ends));
    _posix_close(pipe_ends[0]);
    EXPECT_EQ(-1, _posix_write(pipe_ends[1], "x", 1));
    EXPECT_EQ(EPIPE, errno);
    _posix_close(pipe_ends[1]);
}

TEST_F(Posixio, a_refused_write_raises_no_signal_and_one_that_the_host_holds_back_stays_pending) {
    write_to_a_broken_pipe();
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {10, before.rlim_max};
    const int fd = _posix_creat(scratch.file("limited").c_str(), 0600);
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool refused = _posix_write(fd, "0123456789ab", 12) == -1 && errno == EFBIG;
    const int extended = _posix_ftruncate(fd, 100);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_TRUE(refused);
    EXPECT_EQ(-1, extended);
    _posix_close(fd);
    EXPECT_FALSE(is_pending(SIGPIPE) || is_pending(SIGXFSZ));

    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    raise(SIGPIPE);
    write_to_a_broken_pipe();
    EXPECT_TRUE(is_pending(SIGPIPE));
    int taken;
    sigwait(&held, &taken);
    pthread_sigmask(SIG_UNBLOCK, &held, nullptr);
}

// An errno, 255 where a descriptor stayed behind, 0 where the file may be opened.
int sopen_in_another_process(const char* path, int flags, int share) {
    const pid_t other = fork();
    if (other == 0) {
        const int next = dup(0);
        close(next);
        const int fd = _posix_sopen(path, flags, share, 0);
        const int error = fd == -1 ? errno : 0;
        _exit(fd != -1 || dup(0) == next ? error : 255);
    }
    int ended = -1;
    waitpid(other, &ended, 0);
    return WEXITSTATUS(ended);
}

TEST_F(Posixio, sopen_keeps_processes_apart_as_the_share_value_says) {
    const std::string path = scratch.file_with("data", "abc");
    constexpr int other_share = 0x20;
    const struct {
        int holder_flags, flags, share, error;
    } cases[] = {
        {O_WRONLY, O_RDONLY, POSIX_SHARE_TEST, EAGAIN},
        {O_WRONLY, O_RDONLY, POSIX_SHARE_NONE, 0},
        {O_RDONLY, O_RDONLY, other_share, 0},
    };
    for (const auto& [holder_flags, flags, share, error] : cases) {
        const UTDescriptor holder(_posix_sopen(path.c_str(), holder_flags, other_share, 0));
        EXPECT_TRUE(holder.is_open());
        EXPECT_EQ(error, sopen_in_another_process(path.c_str(), flags, share))
            << holder_flags << flags << ' ' << share;
    }
}

// The host as a shell's background job: the leader of a session owns the terminal, its child is in
// another process group and would be stopped by the kernel.
TEST_F(Posixio, a_terminal_does_not_stop_a_process_in_the_background) {
    int terminal = -1;
    const pid_t leader = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (leader == 0) {
        termios modes;
        tcgetattr(STDIN_FILENO, &modes);
        modes.c_lflag |= TOSTOP;
        tcsetattr(STDIN_FILENO, TCSANOW, &modes);
        const pid_t background = fork();
        if (background == 0) {
            setpgid(0, 0);
            const int tty = open("/dev/tty", O_RDWR);
            char byte;
            const bool refused = _posix_read(tty, &byte, 1) == -1 && errno == EIO;
            const bool written = _posix_write(tty, "x", 1) == 1;
            _exit(refused && written ? 0 : 1);
        }
        int ended = 0;
        waitpid(background, &ended, WUNTRACED);
        if (WIFSTOPPED(ended)) kill(background, SIGKILL);
        _exit(WIFEXITED(ended) ? WEXITSTATUS(ended) : 2);
    }
    if (leader == -1) GTEST_SKIP() << "no pseudo-terminal here: " << std::strerror(errno);
    int ended = 0;
    waitpid(leader, &ended, 0);
    close(terminal);
    EXPECT_TRUE(WIFEXITED(ended));
    EXPECT_EQ(0, WEXITSTATUS(ended)) << "2: stopped, 1: refused or let through wrongly";
}
