#include "host/compose/headertext.h"

#include <algorithm>

#include "host/compose/encodedword.h"
#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

// A word of a text with the blanks in front of it.
struct SpacedWord {
    std::string_view gap;
    std::string_view word;
};

std::vector<SpacedWord> split_words(std::string_view text) {
    std::vector<SpacedWord> words;
    while (!text.empty()) {
        const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
        const std::size_t end = std::min(text.find_first_of(blanks, begin), text.size());
        words.push_back({text.substr(0, begin), text.substr(begin, end - begin)});
        text.remove_prefix(end);
    }
    return words;
}

// Letters that need no double quotes in front of an address.
bool is_plain_in_name(char c) {
    return is_letter(c) || is_digit(c) ||
           std::string_view("!#$%&'*+-/=?^_`{|}~ ").find(c) != std::string::npos;
}

std::string in_quotes(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace

std::string_view without_blanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::vector<std::string> name_words(std::string_view name, std::size_t room) {
    name = without_blanks(name);
    // The library's sender_name takes no angle brackets, not even in quotes.
    if (needs_encoding(name) || name.find_first_of("<>") != std::string_view::npos)
        return encoded_words(name, room);
    if (std::ranges::all_of(name, is_plain_in_name) && name.find("  ") == std::string_view::npos) {
        std::vector<std::string> words;
        for (const SpacedWord& part : split_words(name)) words.emplace_back(part.word);
        const bool fit = std::ranges::all_of(
            words, [](const std::string& word) { return word.size() <= longest_encoded_word; });
        if (fit) return words;
    }
    std::string quoted = in_quotes(name);
    if (quoted.size() <= longest_encoded_word) return {std::move(quoted)};
    return encoded_words(name, room);
}

void put_text(FoldedHeader& header, std::string_view text) {
    const std::vector<SpacedWord> words = split_words(without_blanks(text));
    const auto encode = [](const SpacedWord& part) {
        // Far below what a line may have, since others may lengthen it on the way.
        constexpr std::size_t longest_plain = 500;
        return part.gap.size() + part.word.size() > longest_plain || needs_encoding(part.word);
    };
    const auto first = std::find_if(words.begin(), words.end(), encode);
    const auto last = std::find_if(words.rbegin(), words.rend(), encode).base();
    const auto put_plain = [&header](const SpacedWord& part) {
        header.put(part.word, part.gap.empty() ? " " : part.gap);
    };
    std::for_each(words.begin(), first, put_plain);
    if (first == words.end()) return;
    // The blanks in front of an encoded word are a reader's too, and those between two are not.
    const char* begin = first->word.data();
    if (first->gap.size() > 1) begin -= first->gap.size() - 1;
    const char* const end = (last - 1)->word.data() + (last - 1)->word.size();
    const std::string_view run(begin, static_cast<std::size_t>(end - begin));
    for (const std::string& word : encoded_words(run, header.room())) header.put(word);
    std::for_each(last, words.end(), put_plain);
}

bool check_header_text(std::string_view text, std::string& error) {
    for (std::size_t at = 0; at < text.size();) {
        const Character c = first_character(text.substr(at));
        if (!c.valid) {
            error = "the byte at " + std::to_string(at) + " is not UTF-8";
            return false;
        }
        constexpr char32_t first_printable = 0x20;
        constexpr char32_t deleted = 0x7F;
        if ((c.code < first_printable && c.code != '\t') || c.code == deleted) {
            const bool line_break = c.code == '\r' || c.code == '\n';
            error = line_break ? "takes no line breaks" : "takes no control characters";
            return false;
        }
        at += c.length;
    }
    return true;
}

}  // namespace host
