#include "host/sqlite/shell/lexer.h"

#include "host/text.h"

namespace host {

namespace {

bool is_space(char c) {
    return std::string_view(" \t\r\n\f\v").find(c) != std::string_view::npos;
}

bool is_word_start(char c) {
    return is_letter(c) || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool is_word_part(char c) {
    return is_word_start(c) || is_digit(c) || c == '$';
}

}  // namespace

std::string_view closing_mark(std::string_view text, std::size_t pos) {
    const std::string_view rest = text.substr(pos);
    if (rest.starts_with("--")) return "\n";
    if (rest.starts_with("/*")) return "*/";
    if (rest.starts_with('\'')) return "'";
    if (rest.starts_with('"')) return "\"";
    if (rest.starts_with('`')) return "`";
    if (rest.starts_with('[')) return "]";
    return {};
}

std::size_t opening_length(std::string_view text, std::size_t pos) {
    return text[pos] == '-' || text[pos] == '/' ? 2 : 1;
}

std::size_t skip_quoted(std::string_view text, std::size_t pos) {
    const std::string_view mark = closing_mark(text, pos);
    const std::size_t end = text.find(mark, pos + opening_length(text, pos));
    return end == std::string_view::npos ? end : end + mark.size();
}

std::size_t skip_blank(std::string_view text, std::size_t pos) {
    while (pos < text.size()) {
        if (is_space(text[pos])) {
            ++pos;
            continue;
        }
        const std::string_view mark = closing_mark(text, pos);
        if (mark != "\n" && mark != "*/") return pos;
        const std::size_t end = skip_quoted(text, pos);
        // A line comment may end with the text, a block comment may not.
        if (end == std::string_view::npos) return mark == "\n" ? text.size() : pos;
        pos = end;
    }
    return pos;
}

std::string_view word_at(std::string_view text, std::size_t pos) {
    if (pos >= text.size() || !is_word_start(text[pos])) return {};
    std::size_t end = pos + 1;
    while (end < text.size() && is_word_part(text[end])) ++end;
    return text.substr(pos, end - pos);
}

}  // namespace host
