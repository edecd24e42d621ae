#include <optional>
#include <string_view>

#include "host/postgres/declaration.h"

namespace host {

namespace {

// Before each procedure's name in the module: the library has functions of the plain names, and a
// server loads its modules for all to see.
constexpr std::string_view prefix = "quorel_";

std::string_view sql_type(QuorelType type) {
    switch (type) {
    case QUOREL_NUMBER:
        return "integer";
    case QUOREL_TEXT:
        return "text";
    case QUOREL_BYTES:
        return "bytea";
    case QUOREL_TEXTS:
        return "text[]";
    default:
        return "void";
    }
}

// The server's own roles for what a procedure reaches; empty where it has none.
std::string_view role_for(Reach reach) {
    switch (reach) {
    case Reach::FilesToRead:
        return "pg_read_server_files";
    case Reach::FilesToWrite:
        return "pg_write_server_files";
    case Reach::Commands:
        return "pg_execute_server_program";
    default:
        return {};
    }
}

std::string quoted(std::string_view text, char quote) {
    std::string result(1, quote);
    for (const char c : text) result.append(c == quote ? 2 : 1, c);
    return result + quote;
}

// One parameter, declared or, without its name and default, as part of a signature.
struct Piece {
    std::string_view type;
    std::string declaration;
};

// SQL has no parameter without a default behind one that has one, so all behind the first that may
// be left out have NULL; the procedures know what that means.
std::vector<Piece> pieces_of(const Procedure& procedure, bool bytes_as_text) {
    std::vector<Piece> pieces;
    bool may_be_absent = false;
    for (const std::uint32_t number : sql_arguments(procedure)) {
        const Parameter& parameter = procedure.parameter(number);
        QuorelType type = argument_type(procedure, number);
        if (bytes_as_text && type == QUOREL_BYTES) type = QUOREL_TEXT;
        Piece piece{sql_type(type), {}};
        if (type == QUOREL_TEXTS) {
            piece.declaration = "VARIADIC " + quoted(std::string(parameter.name) + "s", '"') +
                                " text[] DEFAULT '{}'";
        } else {
            may_be_absent = may_be_absent || parameter.absent == Absent::Null;
            piece.declaration = quoted(parameter.name, '"') + " " + std::string(piece.type) +
                                (may_be_absent ? " DEFAULT NULL" : "");
        }
        pieces.push_back(std::move(piece));
    }
    return pieces;
}

std::string signature(const Procedure& procedure, const std::vector<Piece>& pieces) {
    std::string text(procedure.name);
    text += '(';
    for (const Piece& piece : pieces)
        text.append(text.back() == '(' ? "" : ", ").append(piece.type);
    return text + ")";
}

std::string declaration(const Procedure& procedure, const std::vector<Piece>& pieces) {
    std::string text = "CREATE FUNCTION " + std::string(procedure.name) + "(";
    for (const Piece& piece : pieces)
        text.append(text.back() == '(' ? "\n    " : ",\n    ").append(piece.declaration);
    text.append(")\nRETURNS ").append(sql_type(result_type(procedure)));
    text.append("\nAS 'MODULE_PATHNAME', ");
    text += quoted(std::string(prefix).append(procedure.name), '\'');
    return text + "\nLANGUAGE C VOLATILE PARALLEL UNSAFE;\n";
}

std::string declare(const Procedure& procedure, bool bytes_as_text) {
    const std::vector<Piece> pieces = pieces_of(procedure, bytes_as_text);
    const std::string function = "FUNCTION " + signature(procedure, pieces);
    std::string text = declaration(procedure, pieces);
    text += "COMMENT ON " + function + "\n    IS " + quoted(procedure.summary, '\'') + ";\n";
    text += "REVOKE ALL ON " + function + " FROM PUBLIC;\n";
    if (const std::string_view role = role_for(procedure.reach); !role.empty())
        text += "GRANT EXECUTE ON " + function + " TO " + std::string(role) + ";\n";
    return text + "\n";
}

// A procedure that takes bytes takes a text's as well.
bool takes_bytes(const Procedure& procedure) {
    for (const std::uint32_t number : sql_arguments(procedure))
        if (argument_type(procedure, number) == QUOREL_BYTES) return true;
    return false;
}

}  // namespace

std::string sql_script() {
    std::string text = "\\echo Use \"CREATE EXTENSION quorel\" to load this file. \\quit\n\n";
    for (const Procedure& procedure : procedures()) {
        text += declare(procedure, false);
        if (takes_bytes(procedure)) text += declare(procedure, true);
    }
    return text + R"(CREATE FUNCTION xp_status("procedure" text, "status" integer)
RETURNS text
AS 'MODULE_PATHNAME', 'quorel_xp_status'
LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION xp_status(text, integer)
    IS 'what a status of a procedure means, in words';
)";
}

std::string entry_points() {
    std::string text;
    int place = 0;
    for (const Procedure& procedure : procedures())
        text.append("QUOREL_ENTRY_POINT(")
            .append(prefix)
            .append(procedure.name)
            .append(", ")
            .append(std::to_string(place++))
            .append(")\n");
    return text;
}

}  // namespace host
