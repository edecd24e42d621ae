#include <algorithm>

#include "host/compose/composer.h"

namespace host {

namespace {

constexpr std::string_view blanks = " \t";

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

}  // namespace

bool split_header_lines(std::string_view lines, std::vector<MailHeader>& headers,
                        std::string& error) {
    while (!lines.empty()) {
        std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), line.size() + 1));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (trimmed(line).empty()) continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            error = "headers: a line has no colon; each is a name, a colon and a value";
            return false;
        }
        headers.push_back({trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1))});
    }
    return true;
}

}  // namespace host
