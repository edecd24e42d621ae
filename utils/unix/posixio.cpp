#include "utils/unix/posixio.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "utils/unix/eintr.h"
#include "utils/unix/signalshield.h"
#include "utils/unix/utdescriptor.h"

namespace {

// Added to every open: see the header on children and controlling terminals.
constexpr int host_safe_flags = O_CLOEXEC | O_NOCTTY;

// The flags of open(2) that a mode of fopen(3) asks for; -1 for one that is none. The C library's
// own fopen() cannot be told to leave the controlling terminal alone.
int open_flags(const char* mode) {
    int flags = 0;
    switch (mode[0]) {
    case 'r':
        break;
    case 'w':
        flags = O_CREAT | O_TRUNC;
        break;
    case 'a':
        flags = O_CREAT | O_APPEND;
        break;
    default:
        return -1;
    }
    // ",ccs=" asks for a conversion, which would change what a file holds.
    if (std::strchr(mode, ',') != nullptr) return -1;
    if (std::strchr(mode, 'x') != nullptr) flags |= O_EXCL;
    if (std::strchr(mode, '+') != nullptr) return flags | O_RDWR;
    return flags | (mode[0] == 'r' ? O_RDONLY : O_WRONLY);
}

// Moves `length` bytes by repeated calls of `transfer`(bytes done so far), which moves some and
// returns how many, 0 at the end, -1 on failure.
template <class Transfer>
ssize_t transfer_fully(std::size_t length, Transfer transfer) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t moved = retry_interrupted([&] { return transfer(done); });
        if (moved < 0) return -1;
        if (moved == 0) break;
        done += static_cast<std::size_t>(moved);
    }
    return static_cast<ssize_t>(done);
}

// Runs a transfer; no signal that it raises reaches the host.
template <class Transfer>
auto shielded(Transfer transfer) {
    SignalShield shield;
    const auto result = transfer();
    if (result < 0) shield.swallow();
    return result;
}

// Only a terminal raises signals when it is read; a shield costs more than this question.
bool may_be_terminal(int fd) {
    struct stat64 found;
    return fstat64(fd, &found) == 0 && S_ISCHR(found.st_mode);
}

template <class Call>
int stat_into(a_posix_statbuf* buffer, Call call) {
    struct stat64 found;
    const int result = retry_interrupted([&] { return call(&found); });
    if (result != 0) return result;
    // One by one: the widths of the system's fields differ with the platform, callers see one kind.
    buffer->pst_dev = found.st_dev;
    buffer->pst_ino = found.st_ino;
    buffer->pst_mode = found.st_mode;
    buffer->pst_uid = found.st_uid;
    buffer->pst_gid = found.st_gid;
    buffer->pst_size = static_cast<uint64>(found.st_size);
    buffer->pst_atime = found.st_atime;
    buffer->pst_mtime = found.st_mtime;
    buffer->pst_ctime = found.st_ctime;
    return 0;
}

// Places or tests the lock that _posix_sopen promises. True when the file may be used.
bool lock_whole_file(int fd, bool for_writing, int share) {
    if (!for_writing && share == POSIX_SHARE_NONE) return true;
    // A test leaves no lock behind, so that this reader does not keep a writer out.
    const bool only_test = !for_writing && share == POSIX_SHARE_TEST;
    struct flock64 lock = {};
    lock.l_type = for_writing ? F_WRLCK : F_RDLCK;
    lock.l_whence = SEEK_SET;
    const int command = only_test ? F_GETLK64 : F_SETLK64;
    if (retry_interrupted([&] { return fcntl(fd, command, &lock); }) == -1) return false;
    if (!only_test || lock.l_type == F_UNLCK) return true;
    errno = EAGAIN;
    return false;
}

}  // namespace

int _posix_open(const char* path, int flags, mode_t mode) {
    return retry_interrupted([&] { return open64(path, flags | host_safe_flags, mode); });
}

int _posix_sopen(const char* path, int flags, int share, mode_t mode) {
    UTDescriptor file(open64(path, flags | host_safe_flags, mode));
    if (!file.is_open()) return -1;
    const bool for_writing = (flags & O_ACCMODE) != 0;
    return lock_whole_file(file.get(), for_writing, share) ? file.release() : -1;
}

int _posix_creat(const char* path, mode_t mode) {
    return _posix_open(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

std::FILE* _posix_fopen(const char* path, const char* mode) {
    const int flags = open_flags(mode);
    if (flags == -1) {
        errno = EINVAL;
        return nullptr;
    }
    constexpr mode_t as_fopen_does = 0666;
    UTDescriptor file(_posix_open(path, flags, as_fopen_does));
    if (!file.is_open()) return nullptr;
    // As fopen() does: where the stream's position is told from.
    if (mode[0] == 'a' && (flags & O_ACCMODE) == O_WRONLY) lseek64(file.get(), 0, SEEK_END);
    std::FILE* const stream = fdopen(file.get(), mode);
    if (stream != nullptr) file.release();
    return stream;
}

ssize_t _posix_read_regular(int fd, void* buffer, std::size_t length) {
    return transfer_fully(length, [&](std::size_t done) {
        return read(fd, static_cast<char*>(buffer) + done, length - done);
    });
}

ssize_t _posix_read(int fd, void* buffer, std::size_t length) {
    if (length == 0) return 0;
    if (!may_be_terminal(fd)) return _posix_read_regular(fd, buffer, length);
    return shielded([&] { return _posix_read_regular(fd, buffer, length); });
}

ssize_t _posix_write(int fd, const void* buffer, std::size_t length) {
    if (length == 0) return 0;
    return shielded([&] {
        return transfer_fully(length, [&](std::size_t done) {
            return write(fd, static_cast<const char*>(buffer) + done, length - done);
        });
    });
}

// Without shield: a terminal, which alone raises signals when it is read, has no offsets.
ssize_t _posix_pread(int fd, void* buffer, std::size_t length, int64 offset) {
    return transfer_fully(length, [&](std::size_t done) {
        return pread64(fd, static_cast<char*>(buffer) + done, length - done,
                       offset + static_cast<int64>(done));
    });
}

ssize_t _posix_pwrite(int fd, const void* buffer, std::size_t length, int64 offset) {
    if (length == 0) return 0;
    return shielded([&] {
        return transfer_fully(length, [&](std::size_t done) {
            return pwrite64(fd, static_cast<const char*>(buffer) + done, length - done,
                            offset + static_cast<int64>(done));
        });
    });
}

int _posix_close(int fd) {
    return retry_interrupted([&] { return close(fd); });
}

int64 _posix_lseek(int fd, int64 offset, int whence) {
    return lseek64(fd, offset, whence);
}

int64 _posix_tell(int fd) {
    return _posix_lseek(fd, 0, SEEK_CUR);
}

int64 _posix_filelength(int fd) {
    a_posix_statbuf found;
    return _posix_fstat(fd, &found) == 0 ? static_cast<int64>(found.pst_size) : -1;
}

// Growing beyond the limit on file sizes raises SIGXFSZ as writing does.
int _posix_ftruncate(int fd, int64 length) {
    return shielded([&] { return retry_interrupted([&] { return ftruncate64(fd, length); }); });
}

int _posix_truncate(const char* path, int64 length) {
    return shielded([&] { return retry_interrupted([&] { return truncate64(path, length); }); });
}

int _posix_stat(const char* path, a_posix_statbuf* buffer) {
    return stat_into(buffer, [&](struct stat64* found) { return stat64(path, found); });
}

int _posix_lstat(const char* path, a_posix_statbuf* buffer) {
    return stat_into(buffer, [&](struct stat64* found) { return lstat64(path, found); });
}

int _posix_fstat(int fd, a_posix_statbuf* buffer) {
    return stat_into(buffer, [&](struct stat64* found) { return fstat64(fd, found); });
}

int _posix_access(const char* path, int mode) {
    return retry_interrupted([&] { return access(path, mode); });
}

int _posix_chdir(const char* path) {
    return retry_interrupted([&] { return chdir(path); });
}

int _posix_chmod(const char* path, mode_t mode) {
    return retry_interrupted([&] { return chmod(path, mode); });
}

int _posix_fdatasync(int fd) {
    return retry_interrupted([&] { return fdatasync(fd); });
}

int _posix_fsync(int fd) {
    return retry_interrupted([&] { return fsync(fd); });
}

int _posix_lockf(int fd, int command, int64 length) {
    return retry_interrupted([&] { return lockf64(fd, command, length); });
}

int _posix_mkdir(const char* path, mode_t mode) {
    return retry_interrupted([&] { return mkdir(path, mode); });
}

int _posix_rename(const char* from, const char* to) {
    return retry_interrupted([&] { return rename(from, to); });
}

int _posix_unlink(const char* path) {
    return retry_interrupted([&] { return unlink(path); });
}

int _posix_utime(const char* path, const utimbuf* times) {
    return retry_interrupted([&] { return utime(path, times); });
}

mode_t _posix_umask(mode_t mask) {
    return umask(mask);
}
