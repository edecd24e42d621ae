#ifndef QUOREL_UTILS_UNIX_UTDESCRIPTOR_H
#define QUOREL_UTILS_UNIX_UTDESCRIPTOR_H

#include <cerrno>

#include "utils/unix/posixio.h"

/// A file descriptor that is closed with its scope, or none (-1). Closing leaves errno alone, so
/// that whoever returns early reports why it did. To be made of what _posix_open() and its like
/// return, which is close-on-exec from the start.
class UTDescriptor {
  public:
    UTDescriptor() = default;
    explicit UTDescriptor(int fd) : _fd(fd) {}
    UTDescriptor(const UTDescriptor&) = delete;
    UTDescriptor& operator=(const UTDescriptor&) = delete;
    ~UTDescriptor() { reset(); }

    a_bool is_open() const { return _fd != -1; }
    int get() const { return _fd; }

    /// Closes what there is and takes `fd` in its place.
    void reset(int fd = -1) {
        const int error = errno;
        if (is_open()) _posix_close(_fd);
        errno = error;
        _fd = fd;
    }

    /// Hands the descriptor over to the caller.
    int release() {
        const int fd = _fd;
        _fd = -1;
        return fd;
    }

  private:
    int _fd = -1;
};

#endif
