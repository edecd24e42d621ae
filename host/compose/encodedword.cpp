#include "host/compose/encodedword.h"

#include <algorithm>

#include "host/compose/base64lines.h"
#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

constexpr std::string_view word_begin = "=?utf-8?Q?";
constexpr std::string_view word_end = "?=";
constexpr std::size_t around_word = word_begin.size() + word_end.size();
// One character of four bytes in Q.
constexpr std::size_t smallest_room = around_word + 12;

// What Q leaves alone everywhere, in front of an address too (RFC 2047, section 5).
bool is_plain_in_q(char c) {
    return is_letter(c) || is_digit(c) || std::string_view("!*+-/").find(c) != std::string::npos;
}

std::size_t length_in_q(std::string_view text) {
    std::size_t length = 0;
    for (const char c : text) length += is_plain_in_q(c) || c == ' ' ? 1 : 3;
    return length;
}

std::string in_q(std::string_view text) {
    std::string to;
    for (const char c : text) {
        if (is_plain_in_q(c)) {
            to += c;
        } else if (c == ' ') {
            to += '_';
        } else {
            put_hex(to, '=', c);
        }
    }
    return to;
}

// A word is shorter than a line of base64.
std::size_t length_in_b(std::string_view text) {
    return static_cast<std::size_t>(base64_lines_length(text.size()));
}

std::string in_b(std::string_view text) {
    std::string to(length_in_b(text), '\0');
    Base64Lines lines(to.data());
    lines.put(text);
    lines.end();
    return to;
}

struct WordCode {
    char letter;
    // A word of several ends behind a multiple of so many bytes: some readers join words of one
    // kind before they decode them, where the padding of base64 would end them all.
    std::size_t unit;
    std::size_t (*length)(std::string_view text);
    std::string (*encode)(std::string_view text);
};
constexpr WordCode q_code = {'Q', 1, length_in_q, in_q};
constexpr WordCode b_code = {'B', 3, length_in_b, in_b};

// The whole characters at the start of `text` that an encoded word of `room` bytes has place for.
std::string_view fitting(std::string_view text, const WordCode& code, std::size_t room) {
    std::size_t fits = 0;
    for (std::size_t end = 0; end < text.size();) {
        end += first_character(text.substr(end)).length;
        if (around_word + code.length(text.substr(0, end)) > room) break;
        if (end % code.unit == 0 || end == text.size()) fits = end;
    }
    return text.substr(0, fits);
}

// Takes what fits into one word from the start of `text`, by the code that holds more.
std::string take_word(std::string_view& text, std::size_t room) {
    const std::string_view q = fitting(text, q_code, room);
    const std::string_view b = fitting(text, b_code, room);
    const bool is_q = q.size() != b.size() ? q.size() > b.size() : length_in_q(q) <= length_in_b(b);
    const WordCode& code = is_q ? q_code : b_code;
    const std::string_view taken = is_q ? q : b;
    text.remove_prefix(taken.size());
    std::string word(word_begin);
    word[word.size() - 2] = code.letter;
    return word + code.encode(taken) + std::string(word_end);
}

}  // namespace

void put_hex(std::string& to, char mark, char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    to += {mark, digits[byte >> 4], digits[byte & 0xFU]};
}

bool needs_encoding(std::string_view text) {
    return !std::ranges::all_of(text, is_ascii) || text.find("=?") != std::string_view::npos;
}

std::vector<std::string> encoded_words(std::string_view text, std::size_t room) {
    std::vector<std::string> words;
    room = room < smallest_room ? longest_encoded_word : std::min(room, longest_encoded_word);
    while (!text.empty()) {
        words.push_back(take_word(text, room));
        room = longest_encoded_word;
    }
    return words;
}

}  // namespace host
