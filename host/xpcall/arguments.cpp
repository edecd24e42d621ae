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

}  // namespace

bool give_arguments(CallFrame& frame, const XpcallCall& call, std::deque<FileBytes>& files,
                    std::vector<bool>& asked, std::string& error) {
    const Procedure& procedure = *call.procedure;
    asked.resize(procedure.parameter_count() + 1);
    for (std::uint32_t number = 1; number <= call.arguments.size(); ++number) {
        const std::string& text = call.arguments[number - 1];
        const bool is_out = number <= procedure.parameter_count() && procedure.is_out(number);
        if (is_out && text == "out") {
            asked[number] = true;
        } else if (is_out || text == "out") {
            error = "argument " + std::to_string(number) + " of " + std::string(procedure.name) +
                    (is_out ? " is an OUT parameter; write out in its place"
                            : " is not an OUT parameter; give a value, or text:out for the word");
            return false;
        } else if (!give_argument(frame, number, text, files.emplace_back(), error)) {
            return false;
        }
    }
    return true;
}

}  // namespace host
