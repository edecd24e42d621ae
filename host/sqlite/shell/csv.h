#ifndef QUOREL_HOST_SQLITE_SHELL_CSV_H
#define QUOREL_HOST_SQLITE_SHELL_CSV_H

#include "host/sqlite/shell/rowprinter.h"

namespace host {

/// Rows after RFC 4180, the first one a heading unless the style has none. NULL is nothing between
/// two commas and an empty text is "". A BLOB is x'00ff'; a text has its own bytes, but on a
/// terminal what is_hidden() is escaped.
class Csv : public RowPrinter {
  public:
    Csv(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
        std::function<void()> before_print);

    void add(std::span<const Field> row) override;
    void finish() override;

  private:
    void _print_heading();
    void _print_text(std::string_view text);
    void _print(const Field& field);

    const bool _terminal;
    std::vector<std::string> _heading;  // empty once it is printed
};

}  // namespace host

#endif
