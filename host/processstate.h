#ifndef QUOREL_HOST_PROCESSSTATE_H
#define QUOREL_HOST_PROCESSSTATE_H

/// What the kernel tells of other processes (Linux: proc(5)). Without allocation: all of it is
/// async-signal-safe.

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include <dirent.h>
#include <sys/types.h>

#include "host/descriptor.h"

namespace host {

struct ProcessState {
    pid_t parent = 0;           ///< 0: there is no such process
    bool lives = false;         ///< it has a thread that has not ended
    std::uint64_t started = 0;  ///< clock ticks after boot
};

[[nodiscard]] ProcessState state_of(pid_t pid);

/// The decimal number that `text` begins with; 0 when it begins with none.
template <typename Number>
[[nodiscard]] Number number_at(std::string_view text) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// Calls visit(pid) for each process that there is. One that begins meanwhile may be left out.
template <typename Visit>
void for_each_process(const Visit& visit) {
    const Descriptor folder = open_file("/proc", O_RDONLY | O_DIRECTORY);
    if (!folder.is_open()) return;
    // Not readdir(), which allocates.
    alignas(dirent64) std::array<char, 4096> entries{};
    ssize_t length = 0;
    while ((length = getdents64(folder.number(), entries.data(), entries.size())) > 0) {
        for (const char* at = entries.data(); at < entries.data() + length;) {
            const auto* entry = reinterpret_cast<const dirent64*>(at);
            if (const auto pid = number_at<pid_t>(entry->d_name); pid > 0) visit(pid);
            at += entry->d_reclen;
        }
    }
}

}  // namespace host

#endif
