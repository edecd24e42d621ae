#include "host/xpcall/arguments.h"

#include "host/text.h"

namespace host {

namespace {

bool read_number(std::string_view digits, Value& value, std::string& error) {
    const std::optional<std::int32_t> number = parse_number<std::int32_t>(digits);
    if (number) {
        value = Value::number(*number);
        return true;
    }
    error = "int: takes a whole number from -2147483648 to 2147483647, not \"" +
            std::string(digits) + "\"";
    return false;
}

}  // namespace

bool give_argument(CallFrame& frame, std::uint32_t number, std::string_view written,
                   FileBytes& file, std::string& error) {
    constexpr std::string_view number_mark = "int:";
    constexpr std::string_view text_mark = "text:";
    if (written.starts_with('@'))
        return file.read(std::string(written.substr(1)), error) &&
               frame.lend_argument(number, file.view(), error);
    Value value = Value::null(EXTFN_TYPE_STRING);
    if (written.starts_with(number_mark)) {
        if (!read_number(written.substr(number_mark.size()), value, error)) return false;
    } else if (written != "null") {
        if (written.starts_with(text_mark)) written.remove_prefix(text_mark.size());
        value = Value::text(std::string(written), EXTFN_TYPE_STRING);
    }
    return frame.set_argument(number, std::move(value), error);
}

}  // namespace host
