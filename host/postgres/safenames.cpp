#include "host/postgres/safenames.h"

#include <climits>

namespace host {

std::optional<std::string> SafeNames::name_for(const Parameter& parameter, std::string_view name,
                                               IfMissing if_missing) {
    // No file has such a name, of which a copy could take all memory.
    if (name.size() >= PATH_MAX) return no_file;
    const QuorelFolders& allowed = folders(parameter);
    if (allowed.count == 0) return std::string(name);
    Descriptor file;
    const Found found = open_below({allowed.folders, allowed.count}, name, if_missing, file);
    if (found == Found::Outside) return std::nullopt;
    if (found == Found::Missing) return no_file;
    _files.push_back(std::move(file));
    const bool is_attached = parameter.content == Content::Attachment;
    return is_attached ? _attached(name, _files.back()) : name_of(_files.back());
}

// Its own name goes into the message.
std::string SafeNames::_attached(std::string_view name, const Descriptor& file) {
    const std::string_view own = name.substr(name.rfind('/') + 1);
    return _attachment.make(_settings.scratch, own, name_of(file)) ? _attachment.path() : no_file;
}

}  // namespace host
