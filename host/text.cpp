#include "host/text.h"

#include <algorithm>

namespace host {

bool same_name(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, to_lower, to_lower);
}

}  // namespace host
