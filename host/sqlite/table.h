#ifndef QUOREL_HOST_SQLITE_TABLE_H
#define QUOREL_HOST_SQLITE_TABLE_H

/// A result as a table with a heading and a count of rows:
///
///      name  | size
///     -------+------
///      hosts |  174
///     (1 row)

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct Cell {
    std::string text;    ///< as display_text() makes it
    bool right = false;  ///< numbers stand at the right
};

/// Prints as it goes: the first rows are held back to find the widths of the columns, later ones
/// use those widths, so memory stays bounded whatever comes.
class Table {
  public:
    /// `out` is not owned. `columns` are displayed as display_text() makes them.
    Table(FILE* out, const std::vector<std::string>& columns);

    /// Called once, before anything is printed.
    std::function<void()> before_print;

    void add(std::vector<Cell> row);

    /// Prints what is held back and the count. Nothing may follow.
    void finish();

    /// In place of finish() when the rows ended with a failure: prints what is held back, if there
    /// is any, without a count.
    void abandon();

  private:
    using Row = std::vector<Cell>;

    void _print_held();
    void _print_row(const Row& row) const;

    FILE* _out;
    Row _heading;
    std::vector<Row> _held;
    std::size_t _held_bytes = 0;
    bool _printing = false;
    std::vector<std::size_t> _widths;
    std::size_t _count = 0;
};

}  // namespace host

#endif
