#ifndef QUOREL_HOST_SQLITE_SHELL_JSON_H
#define QUOREL_HOST_SQLITE_SHELL_JSON_H

#include "host/sqlite/shell/rowprinter.h"

namespace host {

/// Rows as an array of objects (RFC 8259). A BLOB, and a text that is not UTF-8, is the text of an
/// SQL literal, x'00ff'; an infinite number is 9e999 or -9e999. What is_hidden() is escaped.
class Json : public RowPrinter {
  public:
    Json(FILE* out, const std::vector<std::string>& columns, std::function<void()> before_print);

    void add(std::span<const Field> row) override;
    void finish() override;

  private:
    void _print(const Field& field);
    void _print_text(std::string_view text);
    void _print_number(double number);

    std::vector<std::string> _columns;
    std::size_t _count = 0;
};

}  // namespace host

#endif
