#include "host/compose/body.h"

#include <algorithm>
#include <cstring>

#include "host/compose/base64lines.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::string_view crlf = "\r\n";

// Calls `take` with each line, without its end; an empty text is an empty line.
template <typename Take>
void for_each_line(std::string_view text, const Take& take) {
    do {
        const auto* const end =
            std::ranges::find_if(text, [](char c) { return c == '\r' || c == '\n'; });
        const auto length = static_cast<std::size_t>(end - text.begin());
        take(text.substr(0, length));
        text.remove_prefix(length);
        text.remove_prefix(text.starts_with(crlf) ? 2 : text.empty() ? 0 : 1);
    } while (!text.empty());
}

bool is_printable(char c) {
    return c > ' ' && c <= '~';
}

// Calls `put` for each byte of a line in quoted-printable (RFC 2045, section 6.7), in lines of 76
// at most.
template <typename Put>
void quote_line(std::string_view line, const Put& put) {
    constexpr std::size_t longest = 75;  // without the "=" of a soft line break
    constexpr char digits[] = "0123456789ABCDEF";
    std::size_t column = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool inner_blank = (c == ' ' || c == '\t') && i + 1 < line.size();
        const bool plain = (is_printable(c) && c != '=') || inner_blank;
        const std::size_t length = plain ? 1 : 3;
        if (column + length > longest) {
            put('=');
            put('\r');
            put('\n');
            column = 0;
        }
        column += length;
        if (plain) {
            put(c);
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        put('=');
        put(digits[byte >> 4]);
        put(digits[byte & 0xFU]);
    }
}

struct TextMeasure {
    bool is_seven_bit = true;
    std::uint64_t length = 0;  // with CRLF behind each line
    std::uint64_t quoted_length = 0;
};

TextMeasure measure(std::string_view text) {
    constexpr std::size_t longest_line = 998;  // RFC 5322, section 2.1.1
    TextMeasure measured;
    for_each_line(text, [&measured](std::string_view line) {
        measured.is_seven_bit = measured.is_seven_bit && line.size() <= longest_line &&
                                std::ranges::all_of(line, [](char c) {
                                    return is_printable(c) || c == ' ' || c == '\t';
                                });
        measured.length += line.size() + crlf.size();
        quote_line(line, [&measured](char) { ++measured.quoted_length; });
        measured.quoted_length += crlf.size();
    });
    return measured;
}

// Writes the lines by `put_line`, which returns their end, CRLF between them.
template <typename PutLine>
char* join_lines(std::string_view text, char* to, PutLine put_line) {
    bool first = true;
    for_each_line(text, [&](std::string_view line) {
        if (!first) to = std::ranges::copy(crlf, to).out;
        first = false;
        to = put_line(line, to);
    });
    return to;
}

char* write_seven_bit(std::string_view text, char* to) {
    return join_lines(
        text, to, [](std::string_view line, char* at) { return std::ranges::copy(line, at).out; });
}

char* write_quoted(std::string_view text, char* to) {
    return join_lines(text, to, [](std::string_view line, char* at) {
        quote_line(line, [&at](char c) { *at++ = c; });
        return at;
    });
}

char* write_base64(std::string_view content, bool is_text, char* to) {
    Base64Lines lines(to);
    if (!is_text) {
        lines.put(content);
        return lines.end();
    }
    for_each_line(content, [&lines](std::string_view line) {
        lines.put(line);
        lines.put(crlf);
    });
    return lines.end();
}

}  // namespace

Body Body::of_text(std::string_view text) {
    const TextMeasure measured = measure(text);
    const std::uint64_t base64 = base64_lines_length(measured.length);
    Body body;
    body._content = text;
    body._is_text = true;
    if (measured.is_seven_bit) {
        body._transfer = Transfer::SevenBit;
        body._length = measured.length - crlf.size();
    } else if (measured.quoted_length - crlf.size() <= base64) {
        body._transfer = Transfer::QuotedPrintable;
        body._length = measured.quoted_length - crlf.size();
    } else {
        body._length = base64;
    }
    return body;
}

Body Body::of_bytes(std::string_view bytes) {
    Body body;
    body._content = bytes;
    body._length = base64_lines_length(bytes.size());
    return body;
}

std::string_view Body::transfer_name() const {
    constexpr std::string_view names[] = {"7bit", "quoted-printable", "base64"};
    return names[static_cast<std::size_t>(_transfer)];
}

char* Body::write(char* to) const {
    switch (_transfer) {
    case Transfer::SevenBit:
        return write_seven_bit(_content, to);
    case Transfer::QuotedPrintable:
        return write_quoted(_content, to);
    default:
        return write_base64(_content, _is_text, to);
    }
}

std::string_view Body::last_line_end() const {
    return _transfer == Transfer::Base64 ? std::string_view() : crlf;
}

}  // namespace host
