#ifndef QUOREL_FUZZ_FUZZED_H
#define QUOREL_FUZZ_FUZZED_H

// What the fuzz targets have in common.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// A rule that holds for every input.
inline void check(bool holds) {
    if (!holds) std::abort();
}

/// The path of a file with no place in a folder, which now holds `contents`.
inline std::string file_with(const std::string& contents) {
    static const int file = memfd_create("contents", MFD_CLOEXEC);
    check(ftruncate(file, 0) == 0);
    check(pwrite(file, contents.data(), contents.size(), 0) ==
          static_cast<ssize_t>(contents.size()));
    return "/proc/self/fd/" + std::to_string(file);
}

/// An input, taken apart from its start; behind its end everything is 0 or empty.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : _left(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return _left.empty(); }

    unsigned byte() {
        const std::string taken = bytes(1);
        return taken.empty() ? 0 : static_cast<unsigned char>(taken[0]);
    }
    std::string bytes(size_t count) {
        const std::string taken(_left.substr(0, count));
        _left.remove_prefix(taken.size());
        return taken;
    }
    /// Up to the next zero byte, which goes too.
    std::string text() {
        const std::string taken(_left.substr(0, _left.find('\0')));
        _left.remove_prefix(std::min(_left.size(), taken.size() + 1));
        return taken;
    }
    std::string rest() { return bytes(_left.size()); }

  private:
    std::string_view _left;
};

#endif
