#include <algorithm>

#include "host/compose/composer.h"
#include "host/compose/headertext.h"

namespace host {

bool split_header_lines(std::string_view lines, std::vector<MailHeader>& headers,
                        std::string& error) {
    while (!lines.empty()) {
        std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), line.size() + 1));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (without_blanks(line).empty()) continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            error = "headers: a line has no colon; each is a name, a colon and a value";
            return false;
        }
        headers.push_back(
            {without_blanks(line.substr(0, colon)), without_blanks(line.substr(colon + 1))});
    }
    return true;
}

}  // namespace host
