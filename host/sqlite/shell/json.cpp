#include "host/sqlite/shell/json.h"

#include <array>
#include <charconv>
#include <cmath>

#include "host/displaytext.h"
#include "host/sqlite/shell/hex.h"
#include "host/utf8.h"

namespace host {

namespace {

void print_unit(FILE* out, unsigned unit) {
    fprintf(out, "\\u%04x", unit);
}

// Beyond the first 65,536 as a surrogate pair (RFC 8259, section 7).
void print_escape(FILE* out, char32_t code) {
    constexpr char32_t first_pair = 0x10000;
    if (code < first_pair) return print_unit(out, code);
    print_unit(out, 0xD800U + ((code - first_pair) >> 10));
    print_unit(out, 0xDC00U + ((code - first_pair) & 0x3FFU));
}

void print_character(FILE* out, const Character& c, std::string_view bytes) {
    constexpr char32_t replacement = 0xFFFD;
    constexpr std::string_view escaped = "\"\\\n\r\t";
    constexpr std::string_view letters = "\"\\nrt";
    const std::size_t which = escaped.find(bytes);
    if (which != std::string_view::npos) {
        fputc('\\', out);
        fputc(letters[which], out);
    } else if (!c.valid || is_hidden(c.code)) {
        print_escape(out, c.valid ? c.code : replacement);
    } else {
        fwrite(bytes.data(), 1, bytes.size(), out);
    }
}

}  // namespace

Json::Json(FILE* out, const std::vector<std::string>& columns, std::function<void()> before_print)
    : RowPrinter(out, std::move(before_print)), _columns(columns) {}

void Json::add(std::span<const Field> row) {
    fputs(_count++ == 0 ? "[{" : ",\n{", _stream());
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (i > 0) fputc(',', _stream());
        _print_text(_columns[i]);
        fputc(':', _stream());
        _print(row[i]);
    }
    fputc('}', _stream());
}

void Json::finish() {
    fputs(_count == 0 ? "[]\n" : "]\n", _stream());
}

void Json::_print(const Field& field) {
    switch (field.kind) {
    case Field::Kind::Null:
        fputs("null", _stream());
        return;
    case Field::Kind::Integer:
        fwrite(field.bytes.data(), 1, field.bytes.size(), _stream());
        return;
    case Field::Kind::Real:
        return _print_number(field.real);
    case Field::Kind::Text:
        if (is_utf8(field.bytes)) return _print_text(field.bytes);
        [[fallthrough]];
    case Field::Kind::Blob:
        fputc('"', _stream());
        print_hex(_stream(), field.bytes);
        fputc('"', _stream());
    }
}

void Json::_print_text(std::string_view text) {
    fputc('"', _stream());
    while (!text.empty()) {
        const Character c = first_character(text);
        print_character(_stream(), c, text.substr(0, c.length));
        text.remove_prefix(c.length);
    }
    fputc('"', _stream());
}

// The shortest digits that read back as the same number. SQLite has no NaN.
void Json::_print_number(double number) {
    if (std::isinf(number)) {
        fputs(number > 0 ? "9e999" : "-9e999", _stream());
        return;
    }
    std::array<char, 32> digits{};
    const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
    fwrite(text.data(), 1, text.size(), _stream());
    if (text.find_first_of(".e") == std::string_view::npos) fputs(".0", _stream());
}

}  // namespace host
