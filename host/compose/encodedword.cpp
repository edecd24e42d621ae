#include "host/compose/encodedword.h"

#include <algorithm>
#include <cstdint>

#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

constexpr std::string_view word_begin = "=?utf-8?Q?";
constexpr std::string_view word_end = "?=";
constexpr std::size_t around_word = word_begin.size() + word_end.size();
constexpr std::size_t longest_word = 75;  // RFC 2047, section 2
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

std::size_t length_in_b(std::string_view text) {
    return (text.size() + 2) / 3 * 4;
}

std::string in_b(std::string_view text) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string to;
    for (; !text.empty(); text.remove_prefix(std::min<std::size_t>(3, text.size()))) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            to += i <= text.size() ? digits[bits >> (18 - 6 * i) & 0x3FU] : '=';
    }
    return to;
}

struct WordCode {
    char letter;
    std::size_t (*length)(std::string_view text);
    std::string (*encode)(std::string_view text);
};
constexpr WordCode q_code = {'Q', length_in_q, in_q};
constexpr WordCode b_code = {'B', length_in_b, in_b};

// The whole characters at the start of `text` that an encoded word of `room` bytes has place for.
std::string_view fitting(std::string_view text, const WordCode& code, std::size_t room) {
    std::size_t end = 0;
    while (end < text.size()) {
        const std::size_t next = end + first_character(text.substr(end)).length;
        if (around_word + code.length(text.substr(0, next)) > room) break;
        end = next;
    }
    return text.substr(0, end);
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
    const WordCode& code = length_in_q(text) <= length_in_b(text) ? q_code : b_code;
    std::vector<std::string> words;
    room = room < smallest_room ? longest_word : std::min(room, longest_word);
    while (!text.empty()) {
        const std::string_view part = fitting(text, code, room);
        std::string word(word_begin);
        word[word.size() - 2] = code.letter;
        word += code.encode(part);
        words.push_back(word.append(word_end));
        text.remove_prefix(part.size());
        room = longest_word;
    }
    return words;
}

}  // namespace host
