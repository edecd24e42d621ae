#include "host/sqlite/procedurehelp.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

#include "host/sqlite/display.h"

namespace host {

namespace {

const char* type_name(a_sql_data_type type) {
    if (type == EXTFN_TYPE_INT32) return "integer";
    return type == EXTFN_TYPE_BINARY ? "binary" : "text";
}

const char* need(const Parameter& parameter) {
    if (parameter.direction == Direction::Out) return "OUT";
    switch (parameter.absent) {
    case Absent::Refuse:
        return "required";
    case Absent::Connection:
        return "default: this connection's number";
    default:
        return "default: NULL";
    }
}

// A row's name, or the first and last one of those it stands for.
std::string label(const Procedure& procedure, const Parameter& row) {
    std::string name(row.name);
    if (procedure.repeats == 0 || &row != &procedure.parameters.back()) return name;
    return name + "1 … " + name + std::to_string(procedure.repeats);
}

// How many characters must be inserted, dropped or replaced to turn `a` into `b`, case ignored.
std::size_t edit_distance(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return tolower(static_cast<unsigned char>(c)); };
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string describe_procedure(const Procedure& procedure) {
    std::size_t widest = 0;
    for (const Parameter& row : procedure.parameters)
        widest = std::max(widest, display_width(label(procedure, row)));

    std::string text(procedure.name);
    text.append(": ").append(procedure.summary).append("\n");
    for (const Parameter& row : procedure.parameters) {
        const std::string name = label(procedure, row);
        text.append("  ").append(name).append(widest - display_width(name), ' ');
        text.append("  ").append(row.meaning).append(" (").append(type_name(row.type));
        text.append(", ").append(need(row)).append(")\n");
    }
    return text;
}

std::string parameter_list(const Procedure& procedure) {
    std::string list;
    for (const Parameter& row : procedure.parameters)
        list.append(list.empty() ? "" : ", ").append(label(procedure, row));
    return list;
}

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

std::string unknown_procedure(std::string_view name) {
    std::string message = "there is no procedure " + std::string(name);
    const std::string_view nearest = nearest_procedure(name);
    if (!nearest.empty()) message.append("; did you mean ").append(nearest).append("?");
    return message + " (.procedures lists all)";
}

}  // namespace host
