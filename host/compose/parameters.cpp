#include "host/compose/parameters.h"

#include <algorithm>

#include "host/compose/encodedword.h"
#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

// A line has a blank in front and a semicolon behind.
constexpr std::size_t room = FoldedHeader::width - 2;

// What RFC 2045 and RFC 2231 both leave alone in a value, without what some readers stumble over.
bool is_plain_in_value(char c) {
    return is_letter(c) || is_digit(c) || c == '-' || c == '.' || c == '_';
}

std::string percent_encoded(std::string_view text) {
    std::string to;
    for (const char c : text) {
        if (is_plain_in_value(c)) {
            to += c;
        } else {
            put_hex(to, '%', c);
        }
    }
    return to;
}

// name*0*=, name*1*=, ... as many as it takes (RFC 2231, sections 3 and 4.1), of whole characters.
std::vector<std::string> continued(std::string_view name, std::string_view text) {
    std::vector<std::string> parts;
    const auto begin_part = [&] {
        parts.push_back(std::string(name) + '*' + std::to_string(parts.size()) + "*=");
    };
    begin_part();
    parts.back() += "utf-8''";
    while (!text.empty()) {
        const std::size_t length = first_character(text).length;
        const std::string next = percent_encoded(text.substr(0, length));
        if (parts.back().size() + next.size() > room) begin_part();
        parts.back() += next;
        text.remove_prefix(length);
    }
    return parts;
}

std::vector<std::string> parameter_words(const Parameter& parameter) {
    const auto& [name, value] = parameter;
    const bool bare = !value.empty() && std::ranges::all_of(value, is_plain_in_value);
    if (bare && name.size() + 1 + value.size() <= room) return {name + '=' + value};
    // Escapes in double quotes are beyond some readers.
    const bool plain = !needs_encoding(value) && value.find_first_of("\"\\\t") == std::string::npos;
    std::string quoted = name + "=\"" + value + '"';
    if (plain && quoted.size() <= room) return {std::move(quoted)};
    std::string extended = name + "*=utf-8''" + percent_encoded(value);
    if (extended.size() <= room) return {std::move(extended)};
    return continued(name, value);
}

}  // namespace

bool is_token(std::string_view text) {
    constexpr std::string_view specials = "()<>@,;:\\\"/[]?= \t";
    return !text.empty() && std::ranges::all_of(text, is_ascii) &&
           text.find_first_of(specials) == std::string_view::npos;
}

void put_value(FoldedHeader& header, std::string_view value,
               const std::vector<Parameter>& parameters) {
    std::string word(value);
    for (const Parameter& parameter : parameters) {
        for (std::string& next : parameter_words(parameter)) {
            header.put(word + ';');
            word = std::move(next);
        }
    }
    header.put(word);
}

}  // namespace host
