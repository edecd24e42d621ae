#ifndef QUOREL_HOST_SQLITE_SHELL_FIELD_H
#define QUOREL_HOST_SQLITE_SHELL_FIELD_H

#include <cstdint>
#include <string_view>

#include <sqlite3.h>

namespace host {

/// One value of a row to be shown, wherever it comes from. `bytes` are not owned.
struct Field {
    enum class Kind { Null, Integer, Real, Text, Blob };

    Kind kind = Kind::Null;
    std::string_view bytes = {};  ///< of a number, its decimal text
    std::uint64_t length = 0;     ///< of the whole value, of which `bytes` may be the beginning
    double real = 0;

    [[nodiscard]] bool is_number() const { return kind == Kind::Integer || kind == Kind::Real; }

    static Field of(Kind kind, std::string_view bytes) { return {kind, bytes, bytes.size()}; }
};

/// A column of the row that `statement` stands on; good until its next step.
[[nodiscard]] Field field_of(sqlite3_stmt* statement, int column);

}  // namespace host

#endif
