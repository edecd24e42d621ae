#include "host/sqlite/shell/field.h"

namespace host {

namespace {

Field::Kind kind_of(int type) {
    switch (type) {
    case SQLITE_NULL:
        return Field::Kind::Null;
    case SQLITE_INTEGER:
        return Field::Kind::Integer;
    case SQLITE_FLOAT:
        return Field::Kind::Real;
    case SQLITE_BLOB:
        return Field::Kind::Blob;
    default:
        return Field::Kind::Text;
    }
}

}  // namespace

Field field_of(sqlite3_stmt* statement, int column) {
    const Field::Kind kind = kind_of(sqlite3_column_type(statement, column));
    if (kind == Field::Kind::Null) return {};
    const double real = kind == Field::Kind::Real ? sqlite3_column_double(statement, column) : 0;
    // The pointer first: asking for it may convert the value, and the length follows that.
    const void* data = kind == Field::Kind::Blob
                           ? sqlite3_column_blob(statement, column)
                           : static_cast<const void*>(sqlite3_column_text(statement, column));
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    Field field = Field::of(kind, {static_cast<const char*>(data), length});
    field.real = real;
    return field;
}

}  // namespace host
