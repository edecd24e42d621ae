#include "host/processstate.h"

#include <algorithm>

namespace host {

namespace {

std::string_view next_field(std::string_view& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return field;
}

// The fields of /proc/PID/stat, counted as in proc(5), from the third on. The second is a name in
// parentheses, which may hold anything.
ProcessState parse_state(std::string_view stat) {
    constexpr int parent_field = 4;
    constexpr int threads_field = 20;
    constexpr int started_field = 22;
    stat.remove_prefix(std::min(stat.rfind(')') + 2, stat.size()));
    const std::string_view letter = next_field(stat);
    ProcessState state;
    for (int field = parent_field; field <= started_field; ++field) {
        const std::string_view text = next_field(stat);
        if (field == parent_field) state.parent = number_at<pid_t>(text);
        // The first thread of a process may have ended before the others.
        if (field == threads_field) state.lives = letter != "Z" || number_at<int>(text) > 1;
        if (field == started_field) state.started = number_at<std::uint64_t>(text);
    }
    return state;
}

}  // namespace

ProcessState state_of(pid_t pid) {
    constexpr std::string_view before = "/proc/";
    constexpr std::string_view behind = "/stat";
    std::array<char, 40> path{};
    char* at = path.data() + before.copy(path.data(), before.size());
    at = std::to_chars(at, path.data() + path.size() - behind.size() - 1, pid).ptr;
    behind.copy(at, behind.size());

    const Descriptor file = open_file(path.data(), O_RDONLY);
    if (!file.is_open()) return {};
    std::array<char, 1024> text{};
    const ssize_t length = read(file.number(), text.data(), text.size());
    return length > 0 ? parse_state({text.data(), static_cast<std::size_t>(length)})
                      : ProcessState{};
}

}  // namespace host
