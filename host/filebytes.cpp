#include "host/filebytes.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include <sys/stat.h>

#include "host/descriptor.h"

namespace host {

namespace {

// The lengths of a call frame's values have 32 bits.
constexpr std::uint64_t longest_value = UINT32_MAX;

// What a file that does not tell its size starts with.
constexpr std::size_t first_capacity = 65536;

}  // namespace

bool FileBytes::_grow(std::size_t capacity) {
    auto* bytes = static_cast<char*>(realloc(_bytes.get(), capacity));
    if (bytes == nullptr) return false;
    static_cast<void>(_bytes.release());
    _bytes.reset(bytes);
    _capacity = capacity;
    return true;
}

// False with errno set.
bool FileBytes::_read_all(int file) {
    struct stat64 status {};
    if (fstat64(file, &status) != 0) return false;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    errno = EFBIG;
    // A byte more, to see the end.
    if (size >= longest_value ||
        !_grow(std::max(static_cast<std::size_t>(size) + 1, first_capacity)))
        return false;
    constexpr auto largest = std::min<std::uint64_t>(longest_value, SIZE_MAX / 2);
    for (;;) {
        errno = EFBIG;
        if (_length == _capacity && (_capacity > largest || !_grow(_capacity * 2))) return false;
        const ssize_t count = ::read(file, _bytes.get() + _length, _capacity - _length);
        if (count == 0) return true;
        if (count > 0) _length += static_cast<std::size_t>(count);
        if (count < 0 && errno != EINTR) return false;
    }
}

bool FileBytes::read(const std::string& path, std::string& error) {
    const Descriptor file = open_file(path.c_str(), O_RDONLY);
    if (file.is_open() && _read_all(file.number())) return true;
    error = errno == EFBIG || errno == ENOMEM
                ? path + " is too large for this " + std::to_string(sizeof(void*) * CHAR_BIT) +
                      "-bit program"
                : "cannot read " + path + ": " + strerror(errno);
    return false;
}

}  // namespace host
