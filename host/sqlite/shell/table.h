#ifndef QUOREL_HOST_SQLITE_SHELL_TABLE_H
#define QUOREL_HOST_SQLITE_SHELL_TABLE_H

/// A result as a table with a heading and a count of rows:
///
///      name  | size
///     -------+------
///      hosts |  174
///     (1 row)

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "host/sqlite/shell/rowprinter.h"

namespace host {

/// Prints as it goes: the first rows are held back to find the widths of the columns, later ones
/// use those widths, so memory stays bounded whatever comes. Without headings there is no count
/// either.
class Table : public RowPrinter {
  public:
    Table(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
          std::function<void()> before_print);

    void add(std::span<const Field> row) override;
    void finish() override;
    void abandon() override;

  private:
    struct Cell {
        std::string text;
        bool right = false;  // numbers stand at the right
    };
    using Row = std::vector<Cell>;

    void _print_held();
    void _print_rule();
    void _print_row(const Row& row);
    static void _append_cell(std::string& line, const Cell& cell, std::size_t width, bool last);

    const bool _headings;
    const bool _cuts;
    Row _heading;
    std::vector<Row> _held;
    std::size_t _held_bytes = 0;
    bool _printing = false;
    std::vector<std::size_t> _widths;
    std::size_t _count = 0;
};

}  // namespace host

#endif
