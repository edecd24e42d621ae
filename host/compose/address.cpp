#include "host/compose/address.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/compose/composer.h"
#include "host/compose/headertext.h"
#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

constexpr std::size_t longest_local = 64;     // RFC 5321, section 4.5.3.1.1
constexpr std::size_t longest_mailbox = 254;  // a path of 256 without its brackets

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// Ends an atom. A dot does not: people write "John Q. Public" without quotes.
bool is_special(char c) {
    return is_blank(c) || std::string_view("()<>[]:;@\\,\"").find(c) != std::string_view::npos;
}

bool is_dot_atom(std::string_view local) {
    return !local.empty() && local.front() != '.' && local.back() != '.' &&
           local.find("..") == std::string_view::npos && std::ranges::none_of(local, is_special);
}

// What stands in front of "<" or "@".
struct Phrase {
    std::string text;
    std::size_t words = 0;
    bool quoted = false;

    void add(std::string_view word) {
        if (words++ > 0) text += ' ';
        text += word;
    }
};

class AddressReader {
  public:
    AddressReader(std::string_view text, std::vector<Address>& addresses, std::string& error)
        : _text(text), _addresses(addresses), _error(error) {}

    bool read_list();

  private:
    bool read_entry();
    bool open_group(const Phrase& name);
    bool read_phrase(Phrase& phrase);
    bool read_quoted(Phrase& phrase);
    bool read_mailbox(const Phrase& local, Address& address);
    bool put_local(const Phrase& local, std::string& mailbox);
    bool put_domain(std::string& mailbox);
    bool skip_blanks();
    bool skip_comment();

    [[nodiscard]] char peek() const { return _at < _text.size() ? _text[_at] : '\0'; }
    bool take(char c) {
        if (peek() != c) return false;
        ++_at;
        return true;
    }
    bool refuse(std::string_view reason);

    std::string_view _text;
    std::size_t _at = 0;
    std::size_t _entry = 0;             // where the address under way begins
    std::optional<std::size_t> _group;  // where the group under way begins
    std::vector<Address>& _addresses;
    std::string& _error;
};

bool AddressReader::read_list() {
    for (;;) {
        _entry = _at;
        if (!skip_blanks()) return false;
        if (_at == _text.size()) break;
        if (take(',')) continue;
        if (take(';')) {
            _group.reset();
            continue;
        }
        _entry = _at;
        if (!read_entry()) return false;
    }
    if (!_group) return true;
    _entry = *_group;
    return refuse("begins a group of addresses that no ; ends");
}

bool AddressReader::read_entry() {
    Phrase phrase;
    if (!read_phrase(phrase)) return false;
    if (take(':')) return open_group(phrase);
    Address address;
    if (take('<')) {
        address.name = std::move(phrase.text);
        std::ranges::replace(address.name, '\t', ' ');
        Phrase local;
        if (!read_phrase(local) || !read_mailbox(local, address)) return false;
        if (!take('>')) return refuse("has no > behind the address");
    } else if (!read_mailbox(phrase, address)) {
        return false;
    }
    if (!skip_blanks()) return false;
    if (_at < _text.size() && peek() != ',' && peek() != ';')
        return refuse("goes on behind the address; put a comma between two");
    _addresses.push_back(std::move(address));
    return true;
}

bool AddressReader::open_group(const Phrase& name) {
    if (name.words == 0) return refuse("has a : where an address should begin");
    if (_group) return refuse("is a group within a group of addresses");
    _group = _entry;
    return true;
}

bool AddressReader::read_phrase(Phrase& phrase) {
    for (;;) {
        if (!skip_blanks()) return false;
        if (peek() == '"') {
            if (!read_quoted(phrase)) return false;
            continue;
        }
        const std::size_t begin = _at;
        while (_at < _text.size() && !is_special(_text[_at])) ++_at;
        if (begin == _at) return true;
        phrase.add(_text.substr(begin, _at - begin));
    }
}

bool AddressReader::read_quoted(Phrase& phrase) {
    std::string word;
    for (++_at; _at < _text.size(); ++_at) {
        if (take('"')) {
            phrase.add(word);
            phrase.quoted = true;
            return true;
        }
        if (_text[_at] == '\\' && _at + 1 < _text.size()) ++_at;
        word += _text[_at];
    }
    return refuse("has a double quote without its end");
}

bool AddressReader::read_mailbox(const Phrase& local, Address& address) {
    if (!take('@')) {
        if (_at < _text.size() && std::string_view(",;>").find(peek()) == std::string_view::npos)
            return refuse("has a " + std::string(1, peek()) + " outside double quotes");
        return refuse("has no @");
    }
    if (!put_local(local, address.mailbox)) return false;
    address.mailbox += '@';
    if (!skip_blanks() || !put_domain(address.mailbox)) return false;
    if (address.mailbox.size() > longest_mailbox) return refuse("is longer than 254 characters");
    return skip_blanks();
}

bool AddressReader::put_local(const Phrase& local, std::string& mailbox) {
    if (local.words == 0 || local.text.empty()) return refuse("has nothing in front of the @");
    if (local.words > 1)
        return refuse("has blanks in front of the @; a name goes in front of <the address>");
    if (!std::ranges::all_of(local.text, is_ascii))
        return refuse("has letters beyond ASCII in front of the @, which no mail server takes from "
                      "the library: they need SMTPUTF8");
    // Some programs decode first and look for the @ then: in what is decoded there may be another.
    if (local.text.find("=?") != std::string::npos)
        return refuse("has =? in front of the @, as if it were encoded");
    // The library's lists have ";" between two addresses, its hosts take no brackets, and no server
    // a tab (RFC 5321, section 4.1.2).
    if (local.text.find_first_of("<>;\t") != std::string::npos)
        return refuse("has <, >, ; or a tab in front of the @, which the library cannot send to");
    if (is_dot_atom(local.text)) {
        mailbox += local.text;
    } else {
        if (!local.quoted)
            return refuse("has a dot at the wrong place in front of the @; if that is right, put "
                          "all in front of the @ in double quotes");
        mailbox += '"';
        for (const char c : local.text) {
            if (c == '"' || c == '\\') mailbox += '\\';
            mailbox += c;
        }
        mailbox += '"';
    }
    return mailbox.size() <= longest_local || refuse("has more than 64 characters before the @");
}

bool AddressReader::put_domain(std::string& mailbox) {
    const std::size_t begin = _at;
    if (take('[')) {
        while (_at < _text.size() && !is_special(_text[_at])) ++_at;
        while (take(':'))
            while (_at < _text.size() && !is_special(_text[_at])) ++_at;
        if (!take(']')) return refuse("has a [ without its ] behind the @");
    } else {
        while (_at < _text.size() && !is_special(_text[_at])) ++_at;
    }
    std::string ascii;
    std::string reason;
    if (!read_domain(_text.substr(begin, _at - begin), ascii, reason)) return refuse(reason);
    mailbox += ascii;
    return true;
}

bool AddressReader::skip_blanks() {
    for (;;) {
        if (is_blank(peek())) {
            ++_at;
        } else if (peek() == '(') {
            if (!skip_comment()) return false;
        } else {
            return true;
        }
    }
}

// Comments nest, and a backslash takes the next character out of the count.
bool AddressReader::skip_comment() {
    std::size_t depth = 0;
    do {
        if (_at == _text.size()) return refuse("has a comment that no ) ends");
        if (_text[_at] == '\\' && _at + 1 < _text.size()) {
            ++_at;
        } else if (_text[_at] == '(') {
            ++depth;
        } else if (_text[_at] == ')') {
            --depth;
        }
        ++_at;
    } while (depth > 0);
    return true;
}

bool AddressReader::refuse(std::string_view reason) {
    constexpr std::size_t longest_excerpt = 80;
    std::string_view entry = _text.substr(_entry);
    entry = entry.substr(0, entry.find_first_of(",;", _at - _entry));
    const bool cut = entry.size() > longest_excerpt;
    if (cut) entry = without_cut_character(entry.substr(0, longest_excerpt));
    _error = "the address " + std::string(entry) + (cut ? "… " : " ") + std::string(reason);
    return false;
}

}  // namespace

bool list_addresses(std::string_view list, std::vector<std::string>& addresses,
                    std::string& error) {
    std::vector<Address> found;
    if (!check_header_text(list, error) || !read_addresses(list, found, error)) return false;
    for (Address& address : found) addresses.push_back(std::move(address.mailbox));
    return true;
}

bool read_addresses(std::string_view list, std::vector<Address>& addresses, std::string& error) {
    return AddressReader(list, addresses, error).read_list();
}

}  // namespace host
