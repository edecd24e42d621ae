#include "host/nearestname.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "host/procedures.h"
#include "host/text.h"

namespace host {

namespace {

// How many characters must be inserted, dropped or replaced to turn `a` into `b`, case ignored: the
// table of the distances between all their beginnings, of which one row is kept.
std::size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (to_lower(a[i]) == to_lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

// Empty when none is like `name`.
std::string_view nearest_procedure(std::string_view name) {
    std::string_view nearest;
    std::size_t least = name.size() / 2 + 1;  // half of it must be right
    for (const Procedure& procedure : procedures()) {
        const std::size_t distance = edit_distance(name, procedure.name);
        if (distance >= least) continue;
        least = distance;
        nearest = procedure.name;
    }
    return nearest;
}

}  // namespace

std::string unknown_procedure(std::string_view name) {
    std::string message = "there is no procedure " + std::string(name);
    const std::string_view nearest = nearest_procedure(name);
    if (!nearest.empty()) message.append("; did you mean ").append(nearest).append("?");
    return message;
}

}  // namespace host
