#ifndef QUOREL_UTILS_UNIX_POSIXIO_H
#define QUOREL_UTILS_UNIX_POSIXIO_H

/// File operations as the whole library uses them in place of the raw system calls (POSIX.1-2008).
///
/// Every call that a signal can interrupt is repeated while it fails with EINTR, and reads and
/// writes are completed in full, so callers never see a transfer cut short by a signal. Failures
/// are -1 (null for _posix_fopen) with errno set; nothing is printed. Offsets and sizes are 64 bits
/// wide on every platform.
///
/// Every descriptor made here is close-on-exec from the moment it exists, so that it never reaches
/// a child that another thread starts at the same moment, and is opened with O_NOCTTY, so that a
/// terminal never becomes the host's controlling one. No call raises a signal in the host: a write
/// to a pipe without reader fails with EPIPE, one beyond the file size limit with EFBIG, a
/// background process's read from its terminal with EIO. (What a caller does with a stream of
/// _posix_fopen is outside this layer.)
///
/// A null path or buffer fails with EFAULT, as in the system; a mode and a buffer for attributes
/// are not null.
///
/// Threads: every call may be made from any thread.

#include <cstddef>
#include <cstdio>
#include <ctime>

#include <sys/types.h>
#include <utime.h>

#include "utils/etc/uttypes.h"

/// What _posix_stat, _posix_lstat and _posix_fstat report.
struct a_posix_statbuf {
    uint64 pst_dev;         ///< device
    uint64 pst_ino;         ///< inode number
    uint32 pst_mode;        ///< mode and file type bits
    uint32 pst_uid;         ///< owner
    uint32 pst_gid;         ///< group
    uint64 pst_size;        ///< size in bytes
    std::time_t pst_atime;  ///< last access, seconds
    std::time_t pst_mtime;  ///< last modification, seconds
    std::time_t pst_ctime;  ///< last status change, seconds
};

/// Sharing disciplines of _posix_sopen for a file opened for reading. Any other value takes a read
/// lock on the whole file.
enum a_posix_share : int {
    POSIX_SHARE_TEST = 0x30,  ///< only test that no other process holds a write lock
    POSIX_SHARE_NONE = 0x40   ///< no lock at all
};

/// Opens `path` with the flags of open(2), untranslated, and creation mode `mode`. Returns the
/// descriptor.
int _posix_open(const char* path, int flags, mode_t mode);

/// Opens `path` once (EINTR is not retried) and places a lock on the whole file without waiting: a
/// write lock when the file is opened for writing, otherwise what `share` says. -1 with EAGAIN or
/// EACCES when another process holds a conflicting lock; no descriptor stays open then.
///
/// The locks are fcntl(2) record locks: they belong to the process, so they do not keep two openers
/// in the same process apart, and closing any descriptor of the file drops them.
int _posix_sopen(const char* path, int flags, int share, mode_t mode);

/// Opens `path` for writing, created or emptied, with creation mode `mode`. Returns the descriptor.
int _posix_creat(const char* path, mode_t mode);

/// Opens a stdio stream; `mode` as for fopen(3), without the C library's ",ccs=" (EINVAL). The
/// caller closes it with fclose. Null on failure.
std::FILE* _posix_fopen(const char* path, const char* mode);

/// Reads until `length` bytes are in or the file ends. Returns the count, which is less than
/// `length` only at end of file; -1 on failure, when bytes already read are lost to the caller.
/// Length 0 returns 0 without a system call.
ssize_t _posix_read(int fd, void* buffer, std::size_t length);

/// Writes all of `length` bytes. Returns the count, less than `length` only when the system stopped
/// taking bytes without an error; -1 on failure. Length 0 returns 0 without a system call.
ssize_t _posix_write(int fd, const void* buffer, std::size_t length);

/// Like _posix_read and _posix_write from a given offset; the file position does not move.
ssize_t _posix_pread(int fd, void* buffer, std::size_t length, int64 offset);
ssize_t _posix_pwrite(int fd, const void* buffer, std::size_t length, int64 offset);

/// Closes `fd`.
/// Kept: repeated while it fails with EINTR, although the system has then released the descriptor.
int _posix_close(int fd);

/// Moves the file position; returns the new one.
int64 _posix_lseek(int fd, int64 offset, int whence);
/// Current file position.
int64 _posix_tell(int fd);
/// Size of the open file in bytes.
int64 _posix_filelength(int fd);

/// Cut or extend a file to `length` bytes. 0 on success.
int _posix_ftruncate(int fd, int64 length);
int _posix_truncate(const char* path, int64 length);

/// File attributes. 0 on success; *buffer is untouched on failure.
int _posix_stat(const char* path, a_posix_statbuf* buffer);
int _posix_lstat(const char* path, a_posix_statbuf* buffer);
int _posix_fstat(int fd, a_posix_statbuf* buffer);

/// The remaining calls are the system calls of the same name with the EINTR loop; 0 on success.
/// _posix_utime sets access and modification time, both to now for a null `times`.
int _posix_access(const char* path, int mode);
int _posix_chdir(const char* path);
int _posix_chmod(const char* path, mode_t mode);
int _posix_fdatasync(int fd);
int _posix_fsync(int fd);
int _posix_lockf(int fd, int command, int64 length);
int _posix_mkdir(const char* path, mode_t mode);
int _posix_rename(const char* from, const char* to);
int _posix_unlink(const char* path);
int _posix_utime(const char* path, const utimbuf* times);

/// Sets the process's file creation mask and returns the former one; cannot fail.
mode_t _posix_umask(mode_t mask);

#endif
