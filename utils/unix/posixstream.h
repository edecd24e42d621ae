#ifndef QUOREL_UTILS_UNIX_POSIXSTREAM_H
#define QUOREL_UTILS_UNIX_POSIXSTREAM_H

/// Byte streams over files. They are unbuffered: every read and write is a call of the portable
/// file layer, so wrap them in a UTIStreamBuffer or UTOStreamBuffer where bytes move in small
/// pieces.
///
/// A failed call ends the stream and leaves the system's error number in get_last_error().

#include "utils/etc/uterror.h"
#include "utils/etc/utstream.h"
#include "utils/unix/utdescriptor.h"

/// Input from a file.
class UTFileIStream : public UTIStream {
  public:
    /// Opens `name` with the flags and creation mode of open(2) in place of the file that is open.
    /// True on success; otherwise the stream is at its end and get_last_error() says why.
    virtual a_bool open(const char* name, int flags, int mode) = 0;

    /// The same with a sharing mode, where the platform has such.
    virtual a_bool sopen(const char* name, int flags, int share, int mode) = 0;

    /// Closes the file, if one is open.
    virtual void close() = 0;

    a_bool is_error() const { return _last_error.is_error(); }
    UTErrorCode get_last_error() const { return _last_error; }

  protected:
    void* _handle = nullptr;  // for platforms whose files are known by a pointer
    UTErrorCode _last_error;
};

/// Output to a file.
class UTFileOStream : public UTOStream {
  public:
    // As in UTFileIStream.
    virtual a_bool open(const char* name, int flags, int mode) = 0;
    virtual a_bool sopen(const char* name, int flags, int share, int mode) = 0;
    virtual void close() = 0;

    a_bool is_error() const { return _last_error.is_error(); }
    UTErrorCode get_last_error() const { return _last_error; }

  protected:
    UTErrorCode _last_error;
};

/// Input from a file descriptor of its own, closed on destruction.
class PosixIStream final : public UTFileIStream {
  public:
    /// One _posix_read(): all of `n` bytes unless the file ends, also from a pipe that delivers
    /// them in pieces. 0 at end of file or on an error, either of which ends the stream. A regular
    /// file that a read has met the end of is not read again, even if it grows.
    size_t do_get(a_byte* buf, size_t n) override;

    a_bool open(const char* name, int flags, int mode) override;
    a_bool sopen(const char* name, int flags, int share, int mode) override;  // `share` is ignored
    void close() override;

    /// Whether what was opened is a regular file, as it was then.
    a_bool is_regular() const { return _is_regular; }
    /// The size in bytes of a regular file, as it was then; of others 0.
    uint64 size() const { return _size; }

  private:
    UTDescriptor _handle;
    a_bool _is_regular = false;
    uint64 _size = 0;
    a_bool _is_exhausted = false;  // the end was met behind the last bytes read
};

/// Output to a file descriptor.
class PosixOStream final : public UTFileOStream {
  public:
    /// Writes to files that it opens itself, and closes them.
    PosixOStream() = default;

    /// Writes to a descriptor of the caller's, closed on destruction if `do_close` says so.
    PosixOStream(int handle, a_bool do_close) : _handle(handle), _do_close(do_close) {}
    ~PosixOStream() override;

    /// One _posix_write(): all of `n` bytes unless the system stops taking them. It raises no
    /// signal in the host. No bytes written or an error end the stream.
    size_t do_put(const a_byte* data, size_t n) override;

    // open() leaves a descriptor open that stays the caller's; close() closes whatever there is. A
    // file opened here is closed on destruction.
    a_bool open(const char* name, int flags, int mode) override;
    a_bool sopen(const char* name, int flags, int share, int mode) override;  // `share` is ignored
    void close() override;

  private:
    UTDescriptor _handle;  // the caller's while _do_close is false
    a_bool _do_close = true;
};

#endif
