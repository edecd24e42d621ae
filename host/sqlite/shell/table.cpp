#include "host/sqlite/shell/table.h"

#include <algorithm>
#include <utility>

#include "host/displaytext.h"
#include "host/sqlite/shell/display.h"

namespace host {

namespace {

// How much is held back for the widths.
constexpr std::size_t most_rows_held = 1000;
constexpr std::size_t most_bytes_held = std::size_t{1} << 20;

// SQLite heads a column with the whole text of its expression.
constexpr std::size_t widest_heading = 60;

}  // namespace

Table::Table(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
             std::function<void()> before_print)
    : RowPrinter(out, std::move(before_print)), _headings(style.headings), _cuts(style.cuts()) {
    for (const std::string& column : columns) {
        std::string text = display_text(column);
        _heading.push_back({_cuts ? display_cut(std::move(text), widest_heading) : text});
        _widths.push_back(_headings ? display_width(_heading.back().text) : 0);
    }
}

void Table::add(std::span<const Field> fields) {
    ++_count;
    Row row;
    for (const Field& field : fields)
        row.push_back({display_value(field, _cuts), field.is_number()});
    if (_printing) return _print_row(row);
    for (std::size_t i = 0; i < row.size(); ++i) {
        _widths[i] = std::max(_widths[i], display_width(row[i].text));
        _held_bytes += row[i].text.size();
    }
    _held.push_back(std::move(row));
    // Either many rows or long ones: memory is what is bounded.
    if (_held.size() >= most_rows_held || _held_bytes >= most_bytes_held) _print_held();
}

void Table::finish() {
    if (!_printing) _print_held();
    if (_headings) fprintf(_stream(), "(%zu %s)\n\n", _count, _count == 1 ? "row" : "rows");
}

void Table::abandon() {
    if (!_held.empty()) _print_held();
}

void Table::_print_held() {
    _printing = true;
    if (_headings) {
        _print_row(_heading);
        _print_rule();
    }
    for (const Row& row : _held) _print_row(row);
    _held.clear();
}

void Table::_print_rule() {
    std::string rule;
    for (const std::size_t width : _widths) {
        if (!rule.empty()) rule += '+';
        rule.append(width + 2, '-');
    }
    fprintf(_stream(), "%s\n", rule.c_str());
}

void Table::_print_row(const Row& row) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
        _append_cell(line, row[i], _widths[i], i + 1 == row.size());
    line += '\n';
    fwrite(line.data(), 1, line.size(), _stream());
}

void Table::_append_cell(std::string& line, const Cell& cell, std::size_t width, bool last) {
    const std::string padding(width - std::min(width, display_width(cell.text)), ' ');
    line += ' ';
    if (cell.right) line += padding;
    line += cell.text;
    if (last) return;
    if (!cell.right) line += padding;
    line += " |";
}

}  // namespace host
