#include "utils/unix/posixstream.h"

#include <cerrno>

#include <sys/stat.h>

#include "utils/unix/posixio.h"

namespace {

// Opens a file in place of the one in `handle`. False with the reason in *error.
bool open_file(UTDescriptor& handle, UTErrorCode* error, const char* name, int flags, int mode) {
    handle.reset();
    handle.reset(_posix_open(name, flags, static_cast<mode_t>(mode)));
    *error = handle.is_open() ? UTErrorCode() : UTErrorCode::from_errno(errno);
    return handle.is_open();
}

}  // namespace

size_t PosixIStream::do_get(a_byte* buf, size_t n) {
    if (_eof || n == 0) return 0;
    if (_is_exhausted) {
        set_eof();
        return 0;
    }
    // Asking at each read what kind of file it is would cost a large file thousands of calls.
    const ssize_t got = _is_regular ? _posix_read_regular(_handle.get(), buf, n)
                                    : _posix_read(_handle.get(), buf, n);
    // A read of a regular file comes short only because it has met the end.
    _is_exhausted = _is_regular && got >= 0 && static_cast<size_t>(got) < n;
    if (got > 0) return static_cast<size_t>(got);
    if (got < 0) _last_error = UTErrorCode::from_errno(errno);
    set_eof();
    return 0;
}

a_bool PosixIStream::open(const char* name, int flags, int mode) {
    _eof = !open_file(_handle, &_last_error, name, flags, mode);
    _is_exhausted = false;
    a_posix_statbuf status;
    _is_regular = !_eof && _posix_fstat(_handle.get(), &status) == 0 && S_ISREG(status.pst_mode);
    _size = _is_regular ? status.pst_size : 0;
    return !_eof;
}

a_bool PosixIStream::sopen(const char* name, int flags, int, int mode) {
    return open(name, flags, mode);
}

void PosixIStream::close() {
    _handle.reset();
}

PosixOStream::~PosixOStream() {
    if (!_do_close) _handle.release();
}

size_t PosixOStream::do_put(const a_byte* data, size_t n) {
    if (_eof || n == 0) return 0;
    const ssize_t written = _posix_write(_handle.get(), data, n);
    if (written > 0) return static_cast<size_t>(written);
    if (written < 0) _last_error = UTErrorCode::from_errno(errno);
    set_eof();
    return 0;
}

a_bool PosixOStream::open(const char* name, int flags, int mode) {
    if (!_do_close) _handle.release();
    _do_close = true;
    _eof = !open_file(_handle, &_last_error, name, flags, mode);
    return !_eof;
}

a_bool PosixOStream::sopen(const char* name, int flags, int, int mode) {
    return open(name, flags, mode);
}

void PosixOStream::close() {
    _handle.reset();
}
