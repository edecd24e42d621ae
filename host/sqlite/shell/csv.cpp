#include "host/sqlite/shell/csv.h"

#include "host/displaytext.h"
#include "host/sqlite/shell/hex.h"

namespace host {

Csv::Csv(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
         std::function<void()> before_print)
    : RowPrinter(out, std::move(before_print)), _terminal(style.terminal) {
    if (style.headings) _heading = columns;
}

void Csv::add(std::span<const Field> row) {
    _print_heading();
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (i > 0) fputc(',', _stream());
        _print(row[i]);
    }
    fputs("\r\n", _stream());
}

void Csv::finish() {
    _print_heading();
}

void Csv::_print_heading() {
    if (_heading.empty()) return;
    std::vector<Field> names;
    const std::vector<std::string> heading = std::exchange(_heading, {});
    names.reserve(heading.size());
    for (const std::string& name : heading) names.push_back(Field::of(Field::Kind::Text, name));
    add(names);
}

void Csv::_print_text(std::string_view text) {
    // An empty text has its quotes, because nothing between two commas is NULL.
    if (!text.empty() && text.find_first_of("\",\r\n") == std::string_view::npos) {
        fwrite(text.data(), 1, text.size(), _stream());
        return;
    }
    fputc('"', _stream());
    for (const char c : text) {
        if (c == '"') fputc(c, _stream());
        fputc(c, _stream());
    }
    fputc('"', _stream());
}

void Csv::_print(const Field& field) {
    switch (field.kind) {
    case Field::Kind::Null:
        return;
    case Field::Kind::Blob:
        return print_hex(_stream(), field.bytes);
    case Field::Kind::Text:
        return _print_text(_terminal ? display_text(field.bytes, "\n\t") : field.bytes);
    default:
        fwrite(field.bytes.data(), 1, field.bytes.size(), _stream());
    }
}

}  // namespace host
