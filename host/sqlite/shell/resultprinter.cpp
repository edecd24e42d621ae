#include "host/sqlite/shell/resultprinter.h"

#include <algorithm>
#include <cstdio>

namespace host {

namespace {

class ResultPrinter {
  public:
    ResultPrinter(const OutputStyle& style, const Procedure& procedure, const CallFrame& frame)
        : _style(style), _procedure(procedure), _frame(frame) {}

    void show_status() const;
    void show_bytes(const BytesSummary& bytes) const;
    void show_out_values() const;

  private:
    void _show_row(const std::vector<std::string>& names, const std::vector<Field>& row) const {
        const std::unique_ptr<RowPrinter> rows = make_row_printer(_style, stdout, names);
        rows->add(row);
        rows->finish();
    }

    // Below a result of nothing but NULL.
    void _explain_nothing() const {
        if (_style.for_programs()) return;
        printf("NULL: %.*s\n\n", static_cast<int>(_procedure.otherwise.size()),
               _procedure.otherwise.data());
    }

    const OutputStyle& _style;
    const Procedure& _procedure;
    const CallFrame& _frame;
};

void ResultPrinter::show_status() const {
    const std::optional<Value>& result = _frame.result();
    const std::optional<std::int32_t> status = result ? result->as_int() : std::nullopt;
    const std::string_view meaning =
        status ? _procedure.explain(*status) : "the procedure set none";
    if (_style.for_programs()) {
        const std::string number = status ? std::to_string(*status) : "";
        return _show_row({"status", "meaning"},
                         {status ? Field::of(Field::Kind::Integer, number) : Field{},
                          Field::of(Field::Kind::Text, meaning)});
    }
    const std::string shown = status ? "status " + std::to_string(*status) : "no status";
    printf("%s%s: %.*s\n", _procedure.cancellable && _frame.cancelled() ? "cancelled; " : "",
           shown.c_str(), static_cast<int>(meaning.size()), meaning.data());
}

void ResultPrinter::show_bytes(const BytesSummary& bytes) const {
    const std::optional<Value>& result = _frame.result();
    const bool null = result && result->is_null();
    if (null && _frame.cancelled() && !_style.for_programs()) {
        puts("cancelled");
        return;
    }
    _show_row({std::string(_procedure.name)}, {null ? Field{} : bytes.field()});
    if (null) _explain_nothing();
}

void ResultPrinter::show_out_values() const {
    std::vector<std::string> names;
    std::vector<Field> row;
    std::size_t shown = 0;
    for (std::uint32_t number = 1; number <= _procedure.parameter_count(); ++number) {
        if (!_procedure.is_out(number)) continue;
        const std::optional<Value>& value = _frame.out(number);
        const bool null = !value || value->is_null();
        names.push_back(_procedure.parameter_name(number));
        row.push_back(null ? Field{} : Field::of(Field::Kind::Text, *value->bytes));
        if (!null) shown = row.size();
    }
    if (names.empty()) {
        if (!_style.for_programs()) printf("no result: %s\n", _procedure.otherwise.data());
        return;
    }
    // NULLs at the end say nothing; of nothing but NULLs one is shown.
    const bool nothing = shown == 0;
    shown = std::max<std::size_t>(shown, 1);
    names.resize(shown);
    row.resize(shown);
    _show_row(names, row);
    if (nothing) _explain_nothing();
}

}  // namespace

void BytesSummary::take(const void* data, std::uint32_t length, bool append) {
    if (!append) {
        _head.clear();
        _length = 0;
    }
    const std::size_t missing = _most_kept - _head.size();
    _head.append(static_cast<const char*>(data), std::min<std::size_t>(length, missing));
    _length += length;
}

Field BytesSummary::field() const {
    return {Field::Kind::Blob, _head, _length};
}

void show_call_result(const OutputStyle& style, const Procedure& procedure, const CallFrame& frame,
                      const BytesSummary& bytes) {
    const ResultPrinter printer(style, procedure, frame);
    switch (procedure.result) {
    case Result::Status:
        return printer.show_status();
    case Result::Bytes:
        return printer.show_bytes(bytes);
    case Result::None:
        return printer.show_out_values();
    }
}

}  // namespace host
