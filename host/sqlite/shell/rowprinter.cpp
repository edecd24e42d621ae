#include "host/sqlite/shell/rowprinter.h"

#include <algorithm>
#include <iterator>

#include "host/displaytext.h"
#include "host/sqlite/shell/csv.h"
#include "host/sqlite/shell/display.h"
#include "host/sqlite/shell/json.h"
#include "host/sqlite/shell/table.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::string_view names[] = {"table", "line", "csv", "json"};

class Lines : public RowPrinter {
  public:
    Lines(const OutputStyle& style, FILE* out, const std::vector<std::string>& columns,
          std::function<void()> before_print)
        : RowPrinter(out, std::move(before_print)), _cuts(style.cuts()) {
        for (const std::string& column : columns) _labels.push_back(display_text(column));
        std::size_t widest = 0;
        for (const std::string& label : _labels) widest = std::max(widest, display_width(label));
        for (std::string& label : _labels) label.insert(0, widest - display_width(label), ' ');
    }

    void add(std::span<const Field> row) override {
        if (_count++ > 0) fputc('\n', _stream());
        for (std::size_t i = 0; i < row.size(); ++i)
            fprintf(_stream(), "%s = %s\n", _labels[i].c_str(),
                    display_value(row[i], _cuts).c_str());
    }

    void finish() override {}

  private:
    const bool _cuts;
    std::vector<std::string> _labels;
    std::size_t _count = 0;
};

}  // namespace

std::span<const std::string_view> mode_names() {
    return names;
}

std::optional<Mode> find_mode(std::string_view name) {
    const auto* found = std::find_if(std::begin(names), std::end(names),
                                     [name](auto known) { return same_name(known, name); });
    if (found == std::end(names)) return std::nullopt;
    return static_cast<Mode>(found - std::begin(names));
}

std::unique_ptr<RowPrinter> make_row_printer(const OutputStyle& style, FILE* out,
                                             const std::vector<std::string>& columns,
                                             std::function<void()> before_print) {
    switch (style.mode) {
    case Mode::Line:
        return std::make_unique<Lines>(style, out, columns, std::move(before_print));
    case Mode::Csv:
        return std::make_unique<Csv>(style, out, columns, std::move(before_print));
    case Mode::Json:
        return std::make_unique<Json>(out, columns, std::move(before_print));
    case Mode::Table:
        break;
    }
    return std::make_unique<Table>(style, out, columns, std::move(before_print));
}

}  // namespace host
