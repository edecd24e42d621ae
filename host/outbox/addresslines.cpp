#include "host/outbox/addresslines.h"

namespace host::outbox {

std::string join_lines(const std::vector<std::string>& addresses) {
    std::string text;
    for (const std::string& address : addresses) {
        if (!text.empty()) text += '\n';
        text += address;
    }
    return text;
}

std::vector<std::string> split_lines(std::string_view text) {
    std::vector<std::string> addresses;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end != 0) addresses.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return addresses;
}

}  // namespace host::outbox
