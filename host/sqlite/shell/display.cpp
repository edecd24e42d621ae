#include "host/sqlite/shell/display.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <wchar.h>

#include "host/displaytext.h"
#include "host/sqlite/shell/hex.h"
#include "host/utf8.h"

namespace host {

namespace {

// Terminal columns; what cannot be told counts as one.
std::size_t columns_of(const Character& c) {
    const int columns = c.length > 1 ? wcwidth(static_cast<wchar_t>(c.code)) : 1;
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

std::string display_blob(const Field& blob, bool cut) {
    const std::string_view shown = cut ? blob.bytes.substr(0, blob_head) : blob.bytes;
    std::string out;
    out.reserve(2 * shown.size() + sizeof "x''");
    write_hex(shown, [&out](char c) { out += c; });
    if (blob.length <= shown.size()) return out;
    out.insert(out.size() - 1, "…");
    return out + " (" + std::to_string(blob.length) + " bytes)";
}

// The first `limit` bytes or fewer, so that no character is cut.
std::string_view whole_characters(std::string_view text, std::size_t limit) {
    std::size_t end = limit;
    while (end > limit - 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) --end;
    return text.substr(0, end);
}

std::string display_content(std::string_view text, bool cut) {
    if (cut && text.size() > longest_text)
        return display_content(whole_characters(text, longest_text), cut) + "… (" +
               std::to_string(text.size()) + " bytes)";
    if (text == "NULL") return "\\x4eULL";
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const std::size_t backslash = std::min(text.find('\\'), text.size());
        out += display_text(text.substr(0, backslash));
        if (backslash == text.size()) return out;
        out += "\\\\";
        text.remove_prefix(backslash + 1);
    }
}

}  // namespace

std::string display_value(const Field& field, bool cut) {
    switch (field.kind) {
    case Field::Kind::Null:
        return "NULL";
    case Field::Kind::Blob:
        return display_blob(field, cut);
    case Field::Kind::Text:
        return display_content(field.bytes, cut);
    default:
        return std::string(field.bytes);
    }
}

std::string display_size(std::uint64_t bytes) {
    if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    static constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (size >= 1024 && unit + 1 < std::size(units)) {
        size /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    snprintf(text.data(), text.size(), "%.1f %s", size, units[unit]);
    return text.data();
}

std::size_t display_width(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Character c = first_character(text);
        width += columns_of(c);
        text.remove_prefix(c.length);
    }
    return width;
}

std::string display_cut(std::string text, std::size_t width) {
    if (display_width(text) <= width) return text;
    std::size_t used = 1;  // the ellipsis
    std::size_t end = 0;
    for (;;) {
        const Character c = first_character(std::string_view(text).substr(end));
        used += columns_of(c);
        if (used > width) break;
        end += c.length;
    }
    text.resize(end);
    return text + "…";
}

}  // namespace host
