#include "host/outbox/schema.h"

namespace host::outbox {

bool is_current(std::size_t version, Steps steps, const std::string& where, std::string& error) {
    if (version == steps.size()) return true;
    if (version == 0) {
        error = "there is no outbox in " + where + "; quorel-outbox --install makes one";
        return false;
    }
    if (!is_upgradable(version, steps, error)) return false;
    error = "the outbox is of version " + std::to_string(version) + " and this program's of " +
            std::to_string(steps.size()) + "; quorel-outbox --install brings it up to date";
    return false;
}

bool is_upgradable(std::size_t version, Steps steps, std::string& error) {
    if (version <= steps.size()) return true;
    error = "the outbox is of version " + std::to_string(version) +
            ", which a newer program made; this one knows " + std::to_string(steps.size());
    return false;
}

}  // namespace host::outbox
