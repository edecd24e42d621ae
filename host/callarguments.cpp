#include "host/callarguments.h"

#include <algorithm>

namespace host {

std::optional<bool> CallArguments::is_on(std::uint32_t number) const {
    const Bytes& bytes = (*this)[number];
    if (!bytes) return std::nullopt;
    return std::any_of(bytes->begin(), bytes->end(), [](char byte) { return byte != 0; });
}

void CallArguments::own(std::uint32_t number, std::string value) {
    std::string& text = _arguments[number - 1].text;
    text = std::move(value);
    lend(number, text);
}

void CallArguments::own(std::uint32_t number, std::unique_ptr<char[]> memory, std::size_t length) {
    lend(number, {memory.get(), length});
    _arguments[number - 1].memory = std::move(memory);
}

void CallArguments::lend(std::uint32_t number, std::string_view value) {
    Argument& argument = _arguments[number - 1];
    argument.given = true;
    // A null pointer would be NULL to the procedure, and this is an empty value.
    argument.bytes = value.data() == nullptr ? std::string_view("") : value;
}

void CallArguments::set_null(std::uint32_t number) {
    _arguments[number - 1].given = true;
    _arguments[number - 1].bytes.reset();
}

}  // namespace host
