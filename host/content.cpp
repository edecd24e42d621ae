#include "host/content.h"

#include <algorithm>
#include <initializer_list>

namespace host {

namespace {

using enum Content;

bool has_zero(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

bool has_break(std::string_view text) {
    constexpr std::string_view breaks("\r\n\0", 3);
    return text.find_first_of(breaks) != std::string_view::npos;
}

bool is_control(char c) {
    constexpr char last_control = 0x1f;
    constexpr char deleted = 0x7f;
    // Bytes beyond ASCII, which are negative here, are parts of letters.
    return (c >= 0 && c <= last_control && c != '\t') || c == deleted;
}

bool has_control(std::string_view text) {
    return std::any_of(text.begin(), text.end(), is_control);
}

bool has_angle(std::string_view text) {
    return text.find_first_of("<>") != std::string_view::npos;
}

// True also where a quote has no end: it would swallow the address that follows.
bool has_loose_comma(std::string_view text) {
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') quoted = !quoted;
        if (text[i] == ',' && !quoted) return true;
        if (text[i] == '\\' && quoted) ++i;
    }
    return quoted;
}

bool has_unquotable_end(std::string_view path) {
    const std::string_view file = path.substr(path.rfind('/') + 1);
    return has_control(file) || file.find_first_of("\"\\") != std::string_view::npos;
}

constexpr unsigned bit(Content content) {
    return 1U << static_cast<unsigned>(content);
}

constexpr unsigned of(std::initializer_list<Content> contents) {
    unsigned bits = 0;
    for (const Content content : contents) bits |= bit(content);
    return bits;
}

struct Rule {
    unsigned contents;
    bool (*is_broken)(std::string_view text);
    std::string_view complaint;
};

constexpr Rule rules[] = {
    {of({Text}), has_zero, "is text and takes no zero byte"},
    {of({Line, Header, Address, Name, Attachment}), has_break,
     "takes no line breaks and no zero bytes"},
    {of({Header, Address, Name}), has_control, "takes no control characters but tabs"},
    {of({Address}), has_angle, "takes bare addresses, without < and >"},
    {of({Name}), has_angle, "takes a name alone, without < and >: the address is added to it"},
    {of({Name}), has_loose_comma,
     "takes double quotes in pairs and a comma only between them, as in \"Doe, Ann\": elsewhere it "
     "begins another sender"},
    {of({Attachment}), has_unquotable_end,
     "takes no \", \\ and control character in the file's own name, which the message carries in "
     "quotes; attach a link or a copy with another name"},
};

}  // namespace

std::string_view complaint(Content content, std::string_view text) {
    for (const Rule& rule : rules)
        if ((rule.contents & bit(content)) != 0 && rule.is_broken(text)) return rule.complaint;
    return {};
}

NumberRange number_range(Content content) {
    switch (content) {
    case Port:
        return {1, 65535, "a whole number from 1 to 65535"};
    case Switch:
        return {0, 1, "1, true, on or yes, or else 0, false, off or no"};
    default:
        return {INT32_MIN, INT32_MAX, "a whole number from -2147483648 to 2147483647"};
    }
}

}  // namespace host
