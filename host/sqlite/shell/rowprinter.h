#ifndef QUOREL_HOST_SQLITE_SHELL_ROWPRINTER_H
#define QUOREL_HOST_SQLITE_SHELL_ROWPRINTER_H

/// The rows of a result in one of several forms.

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/sqlite/shell/field.h"

namespace host {

enum class Mode {
    Table,  ///< a table with a heading and a count of rows
    Line,   ///< "name = value", a line for each; an empty line between rows
    Csv,    ///< RFC 4180; NULL is nothing, an empty text ""
    Json    ///< RFC 8259: an array of objects
};

/// "table", "line", "csv", "json", in the order of the enumeration.
[[nodiscard]] std::span<const std::string_view> mode_names();
[[nodiscard]] std::optional<Mode> find_mode(std::string_view name);

/// How results look.
struct OutputStyle {
    Mode mode = Mode::Table;
    bool headings = true;   ///< of a Table, with its count, and of Csv
    bool terminal = false;  ///< a person watches: nothing may command the terminal

    /// True where long values are cut.
    [[nodiscard]] bool cuts() const {
        return terminal && (mode == Mode::Table || mode == Mode::Line);
    }
    /// True where a program reads the output, which then holds rows and nothing else.
    [[nodiscard]] bool for_programs() const { return mode == Mode::Csv || mode == Mode::Json; }
};

/// Takes the rows of one result and prints them as they come: a result may be larger than memory.
class RowPrinter {
  public:
    RowPrinter(const RowPrinter&) = delete;
    RowPrinter& operator=(const RowPrinter&) = delete;
    virtual ~RowPrinter() = default;

    /// As many fields as there are columns.
    virtual void add(std::span<const Field> row) = 0;
    /// All rows came. Nothing may follow.
    virtual void finish() = 0;
    /// In place of finish() when the rows ended with a failure. What was held back is printed, and
    /// nothing that looks like an end.
    virtual void abandon() {}

  protected:
    RowPrinter(FILE* out, std::function<void()> before_print)
        : _out(out), _before_print(std::move(before_print)) {}

    /// Where to print to.
    FILE* _stream() {
        if (const auto before_print = std::exchange(_before_print, nullptr)) before_print();
        return _out;
    }

  private:
    FILE* _out;
    std::function<void()> _before_print;
};

/// A printer in this style. `out` is not owned; `before_print`, if there is any, is called once,
/// before anything is printed.
[[nodiscard]] std::unique_ptr<RowPrinter>
make_row_printer(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
                 std::function<void()> before_print = nullptr);

}  // namespace host

#endif
