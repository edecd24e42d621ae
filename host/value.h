#ifndef QUOREL_HOST_VALUE_H
#define QUOREL_HOST_VALUE_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "extdll/extfn.h"

namespace host {

/// A value that a procedure is given or hands back. `bytes` empty: SQL NULL.
struct Value {
    std::optional<std::string> bytes;
    a_sql_data_type type = EXTFN_TYPE_STRING;

    [[nodiscard]] bool is_null() const { return !bytes.has_value(); }

    /// The number in a value of type EXTFN_TYPE_INT32; nothing for any other value.
    [[nodiscard]] std::optional<std::int32_t> as_int() const {
        std::int32_t number = 0;
        if (type != EXTFN_TYPE_INT32 || !bytes || bytes->size() != sizeof number)
            return std::nullopt;
        memcpy(&number, bytes->data(), sizeof number);
        return number;
    }

    static Value null(a_sql_data_type type) { return {std::nullopt, type}; }
    static Value text(std::string text, a_sql_data_type type) { return {std::move(text), type}; }
    static Value number(std::int32_t number) {
        return {std::string(reinterpret_cast<const char*>(&number), sizeof number),
                EXTFN_TYPE_INT32};
    }
};

}  // namespace host

#endif
