#include "host/postgres/declaration.h"

namespace host {

bool is_repeated(const Procedure& procedure, std::uint32_t number) {
    return procedure.repeats != 0 && number == procedure.parameters.size();
}

std::vector<std::uint32_t> sql_arguments(const Procedure& procedure) {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t number = 1; number <= procedure.parameters.size(); ++number)
        if (procedure.parameter(number).is_positional()) numbers.push_back(number);
    return numbers;
}

QuorelType argument_type(const Procedure& procedure, std::uint32_t number) {
    if (is_repeated(procedure, number)) return QUOREL_TEXTS;
    switch (procedure.parameter(number).type) {
    case EXTFN_TYPE_INT32:
        return QUOREL_NUMBER;
    case EXTFN_TYPE_BINARY:
        return QUOREL_BYTES;
    default:
        return QUOREL_TEXT;
    }
}

std::uint32_t first_out(const Procedure& procedure) {
    for (std::uint32_t number = 1; number <= procedure.parameters.size(); ++number)
        if (procedure.is_out(number)) return number;
    return 0;
}

QuorelType result_type(const Procedure& procedure) {
    if (procedure.result == Result::Status) return QUOREL_NUMBER;
    if (procedure.result == Result::Bytes) return QUOREL_BYTES;
    const std::uint32_t out = first_out(procedure);
    if (out == 0) return QUOREL_VOID;
    return is_repeated(procedure, out) ? QUOREL_TEXTS : QUOREL_TEXT;
}

}  // namespace host
