// Writes the procedures as tools/manual reads them: a line for each procedure, parameter and
// status, with tabs between its fields.

#include <cinttypes>
#include <cstdio>
#include <string>

#include "host/procedures.h"

namespace {

const char* kind(const host::Parameter& parameter) {
    if (parameter.content == host::Content::Switch) return "hosts only";
    if (parameter.direction == host::Direction::Out) return "OUT";
    return parameter.absent == host::Absent::Refuse ? "required" : "";
}

void list(const host::Procedure& procedure) {
    printf("procedure\t%s\t%s\n", procedure.name.data(), procedure.summary.data());
    for (std::uint32_t row = 1; row <= procedure.parameters.size(); ++row) {
        const bool repeated = procedure.repeats != 0 && row == procedure.parameters.size();
        const host::Parameter& parameter = procedure.parameters[row - 1];
        std::string place = std::to_string(row);
        if (repeated) place += " to " + std::to_string(procedure.parameter_count());
        printf("parameter\t%s%s\t%s\t%s\t%s\n", procedure.parameter_name(row).c_str(),
               repeated ? " ..." : "", place.c_str(), kind(parameter), parameter.meaning.data());
    }
    for (const host::StatusMeaning& status : procedure.statuses)
        printf("status\t%" PRId32 "\t%s\n", status.status, status.meaning.data());
}

}  // namespace

int main() {
    for (const host::Procedure& procedure : host::procedures()) list(procedure);
}
