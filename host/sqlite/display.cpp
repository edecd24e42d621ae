#include "host/sqlite/display.h"

#include <wchar.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace host {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t length = 0;  // 0: not UTF-8
};

// The character at the start of `text`, which is not empty (RFC 3629, section 4).
Character decode(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    char32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (lead < 0xC2 || code < smallest[length] || code > 0x10FFFF || surrogate) return {};
    return {code, length};
}

// Terminal columns; what cannot be told counts as one.
std::size_t columns_of(const Character& c) {
    const int columns = c.length > 1 ? wcwidth(static_cast<wchar_t>(c.code)) : 1;
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

void append_escape(std::string& out, char c) {
    constexpr std::string_view named = "\n\t\r";
    const std::size_t which = named.find(c);
    if (which != std::string_view::npos) {
        out += '\\';
        out += "ntr"[which];
        return;
    }
    std::array<char, 8> hex{};
    snprintf(hex.data(), hex.size(), "\\x%02x",
             static_cast<unsigned>(static_cast<unsigned char>(c)));
    out += hex.data();
}

// The first `limit` bytes or fewer, so that no character is cut.
std::string_view whole_characters(std::string_view text, std::size_t limit) {
    std::size_t end = limit;
    while (end > limit - 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) --end;
    return text.substr(0, end);
}

std::string_view column_bytes(const void* data, int length) {
    return {static_cast<const char*>(data), static_cast<std::size_t>(length)};
}

}  // namespace

std::string display_text(std::string_view text) {
    if (text.size() > longest_text)
        return display_text(whole_characters(text, longest_text)) + "… (" +
               std::to_string(text.size()) + " bytes)";
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Character c = decode(text);
        const std::size_t length = std::max<std::size_t>(c.length, 1);
        if (c.length == 0 || is_control(c.code))
            for (const char byte : text.substr(0, length)) append_escape(out, byte);
        else
            out += text.substr(0, length);
        text.remove_prefix(length);
    }
    return out;
}

std::string display_blob(std::string_view head, std::uint64_t length) {
    const std::string_view shown = head.substr(0, blob_head);
    std::string out = "x'";
    for (const char c : shown) {
        constexpr std::string_view digits = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        out += digits[byte >> 4];
        out += digits[byte & 15U];
    }
    if (length <= shown.size()) return out + "'";
    return out + "…' (" + std::to_string(length) + " bytes)";
}

std::string display_column(sqlite3_stmt* statement, int column) {
    const int type = sqlite3_column_type(statement, column);
    if (type == SQLITE_NULL) return "NULL";
    // The pointer first: asking for it may convert the value, and the length follows that.
    const void* data = type == SQLITE_BLOB ? sqlite3_column_blob(statement, column)
                                           : sqlite3_column_text(statement, column);
    const std::string_view bytes = column_bytes(data, sqlite3_column_bytes(statement, column));
    return type == SQLITE_BLOB ? display_blob(bytes, bytes.size()) : display_text(bytes);
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
        const Character c = decode(text);
        width += columns_of(c);
        text.remove_prefix(std::max<std::size_t>(c.length, 1));
    }
    return width;
}

std::string display_cut(std::string text, std::size_t width) {
    if (display_width(text) <= width) return text;
    std::size_t used = 1;  // the ellipsis
    std::size_t end = 0;
    for (;;) {
        const Character c = decode(std::string_view(text).substr(end));
        used += columns_of(c);
        if (used > width) break;
        end += std::max<std::size_t>(c.length, 1);
    }
    text.resize(end);
    return text + "…";
}

}  // namespace host
