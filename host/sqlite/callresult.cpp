#include "host/sqlite/callresult.h"

#include <algorithm>
#include <cstdio>

#include "host/sqlite/display.h"
#include "host/sqlite/table.h"

namespace host {

namespace {

void show_row(const std::vector<std::string>& names, std::vector<Cell> row) {
    Table table(stdout, names);
    table.add(std::move(row));
    table.finish();
}

// Below a result of nothing but NULL.
void explain_nothing(const Procedure& procedure) {
    printf("NULL: %.*s\n\n", static_cast<int>(procedure.otherwise.size()),
           procedure.otherwise.data());
}

void show_status(const Procedure& procedure, const CallFrame& frame) {
    const std::optional<Value>& result = frame.result();
    const std::optional<std::int32_t> status = result ? result->as_int() : std::nullopt;
    if (!status) {
        puts("no status: the procedure set none");
        return;
    }
    const std::string_view meaning = explain_status(procedure, *status);
    printf("%sstatus %d: %.*s\n", procedure.cancellable && frame.cancelled() ? "cancelled; " : "",
           *status, static_cast<int>(meaning.size()), meaning.data());
}

void show_bytes(const Procedure& procedure, const CallFrame& frame, const BytesSummary& bytes) {
    const std::optional<Value>& result = frame.result();
    const bool null = result && result->is_null();
    if (null && frame.cancelled()) {
        puts("cancelled");
        return;
    }
    show_row({std::string(procedure.name)}, {{null ? "NULL" : bytes.display()}});
    if (null) explain_nothing(procedure);
}

void show_out_values(const Procedure& procedure, const CallFrame& frame) {
    std::vector<std::string> names;
    std::vector<Cell> row;
    std::size_t shown = 0;
    for (std::uint32_t number = 1; number <= procedure.parameter_count(); ++number) {
        if (procedure.parameter(number).direction != Direction::Out) continue;
        const std::optional<Value>& value = frame.out(number);
        const bool null = !value || value->is_null();
        names.push_back(procedure.parameter_name(number));
        row.push_back({null ? "NULL" : display_text(*value->bytes)});
        if (!null) shown = row.size();
    }
    if (names.empty()) {
        printf("no result: %s\n", procedure.otherwise.data());
        return;
    }
    const bool nothing = shown == 0;
    shown = std::max<std::size_t>(shown, 1);
    names.resize(shown);
    row.resize(shown);
    show_row(names, std::move(row));
    if (nothing) explain_nothing(procedure);
}

}  // namespace

void BytesSummary::take(const void* data, std::uint32_t length, bool append) {
    if (!append) {
        _head.clear();
        _length = 0;
    }
    const std::size_t missing = blob_head - _head.size();
    _head.append(static_cast<const char*>(data), std::min<std::size_t>(length, missing));
    _length += length;
}

std::string BytesSummary::display() const {
    return display_blob(_head, _length);
}

void show_call_result(const Procedure& procedure, const CallFrame& frame,
                      const BytesSummary& bytes) {
    switch (procedure.result) {
    case Result::Status:
        return show_status(procedure, frame);
    case Result::Bytes:
        return show_bytes(procedure, frame, bytes);
    case Result::None:
        return show_out_values(procedure, frame);
    }
}

}  // namespace host
