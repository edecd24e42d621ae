#include "host/sqlite/shell/procedurehelp.h"

#include <algorithm>

#include "host/sqlite/shell/display.h"

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
        return "by name only, default: this connection's number";
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

}  // namespace host
