#ifndef QUOREL_HOST_DESCRIPTOR_H
#define QUOREL_HOST_DESCRIPTOR_H

#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace host {

/// Owns a file descriptor, or none. Making, moving and closing one is async-signal-safe.
class Descriptor {
  public:
    Descriptor() = default;
    /// Takes `number` over; below 0 it is none, so that what open() returned can be given as it is.
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(Descriptor&& other) noexcept : _number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            close();
            _number = other.release();
        }
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] bool is_open() const { return _number >= 0; }
    [[nodiscard]] int number() const { return _number; }
    /// Gives it to the caller.
    [[nodiscard]] int release() { return std::exchange(_number, -1); }
    void close() {
        if (is_open()) ::close(release());
    }

  private:
    int _number = -1;
};

/// open(2) for a file of any size, which no command that the process runs gets to see. None with
/// errno set.
inline Descriptor open_file(const char* path, int flags, mode_t mode = 0) {
    return Descriptor(open64(path, flags | O_CLOEXEC, mode));
}

/// The same file under a number that is no standard descriptor's: a program may have closed its
/// own, and what it then prints is not for this file. None with errno set.
inline Descriptor above_standard(Descriptor descriptor) {
    if (!descriptor.is_open() || descriptor.number() > STDERR_FILENO) return descriptor;
    return Descriptor(fcntl(descriptor.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace host

#endif
