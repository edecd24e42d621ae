#include "host/sqlite/table.h"

#include <algorithm>

#include "host/sqlite/display.h"

namespace host {

namespace {

// How much is held back for the widths.
constexpr std::size_t most_rows_held = 1000;
constexpr std::size_t most_bytes_held = std::size_t{1} << 20;

// SQLite heads a column with the whole text of its expression.
constexpr std::size_t widest_heading = 60;

void append_cell(std::string& line, const Cell& cell, std::size_t width, bool last) {
    const std::string padding(width - std::min(width, display_width(cell.text)), ' ');
    line += ' ';
    if (cell.right) line += padding;
    line += cell.text;
    if (last) return;
    if (!cell.right) line += padding;
    line += " |";
}

}  // namespace

Table::Table(FILE* out, const std::vector<std::string>& columns) : _out(out) {
    for (const std::string& column : columns) {
        _heading.push_back({display_cut(display_text(column), widest_heading)});
        _widths.push_back(display_width(_heading.back().text));
    }
}

void Table::add(Row row) {
    ++_count;
    if (_printing) return _print_row(row);
    for (std::size_t i = 0; i < row.size(); ++i) {
        _widths[i] = std::max(_widths[i], display_width(row[i].text));
        _held_bytes += row[i].text.size();
    }
    _held.push_back(std::move(row));
    if (_held.size() >= most_rows_held || _held_bytes >= most_bytes_held) _print_held();
}

void Table::finish() {
    if (!_printing) _print_held();
    fprintf(_out, "(%zu %s)\n\n", _count, _count == 1 ? "row" : "rows");
}

void Table::abandon() {
    if (!_held.empty()) _print_held();
}

void Table::_print_held() {
    if (before_print) before_print();
    _printing = true;
    _print_row(_heading);
    std::string rule;
    for (const std::size_t width : _widths) {
        if (!rule.empty()) rule += '+';
        rule.append(width + 2, '-');
    }
    fprintf(_out, "%s\n", rule.c_str());
    for (const Row& row : _held) _print_row(row);
    _held.clear();
}

void Table::_print_row(const Row& row) const {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
        append_cell(line, row[i], _widths[i], i + 1 == row.size());
    line += '\n';
    fwrite(line.data(), 1, line.size(), _out);
}

}  // namespace host
