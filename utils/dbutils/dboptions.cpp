#include "utils/dbutils/dboptions.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "utils/etc/utascii.h"
#include "utils/utmem/utmem.h"
#include "utils/utmem/utwipe.h"

namespace {

constexpr char separator = ';';
constexpr char assign = '=';

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
constexpr bool is_quote(char c) {
    return c == '\'' || c == '"';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

/// The place of the mark that closes the quotation starting at `text`[0], or npos.
size_t closing_quote(std::string_view text) {
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] != text[0]) continue;
        // A doubled mark stands for one that belongs to the value.
        if (i + 1 == text.size() || text[i + 1] != text[0]) return i;
        ++i;
    }
    return std::string_view::npos;
}

/// Reads the options of a text one by one.
class Parser {
  public:
    explicit Parser(std::string_view text) : _rest(text) {}

    std::string_view key;
    std::string_view value;  // quoted: between the marks, inner ones still doubled
    char quote = '\0';

    /// Steps over what separates options; false when none is left.
    bool More() {
        while (!_rest.empty() && (_rest.front() == separator || is_blank(_rest.front()))) {
            _rest.remove_prefix(1);
        }
        return !_rest.empty();
    }

    /// Reads the next option; false on a syntax error, with `key` as far as it is known.
    bool Next() {
        // Also ";": a key without a value must not swallow the option behind it.
        const size_t end = std::min(_rest.find_first_of("=;"), _rest.size());
        key = trimmed(_rest.substr(0, end));
        if (end == _rest.size() || _rest[end] != assign || key.empty()) return false;
        _rest.remove_prefix(end + 1);
        while (!_rest.empty() && is_blank(_rest.front())) _rest.remove_prefix(1);
        quote = !_rest.empty() && is_quote(_rest.front()) ? _rest.front() : '\0';
        return quote != '\0' ? _Quoted() : _Plain();
    }

  private:
    bool _Plain() {
        const size_t end = std::min(_rest.find(separator), _rest.size());
        value = trimmed(_rest.substr(0, end));
        _rest.remove_prefix(end);
        return true;
    }

    bool _Quoted() {
        const size_t end = closing_quote(_rest);
        if (end == std::string_view::npos) return false;
        value = _rest.substr(1, end - 1);
        _rest.remove_prefix(end + 1);
        const size_t behind = std::min(_rest.find(separator), _rest.size());
        const bool clean = trimmed(_rest.substr(0, behind)).empty();
        _rest.remove_prefix(behind);
        return clean;
    }

    std::string_view _rest;
};

/// Copies `text` to `to`, terminated, every doubled `quote` once; returns the end of the copy.
char* copy_value(char* to, std::string_view text, char quote) {
    for (size_t i = 0; i < text.size(); ++i) {
        *to++ = text[i];
        if (quote != '\0' && text[i] == quote) ++i;
    }
    *to++ = '\0';
    return to;
}

/// One block holds the record, its key and its value.
a_db_option* new_option(const Parser& parsed) {
    const size_t size = sizeof(a_db_option) + parsed.key.size() + 1 + parsed.value.size() + 1;
    char* block = static_cast<char*>(ut_alloc(size));
    char* key = block + sizeof(a_db_option);
    char* value = copy_value(key, parsed.key, '\0');
    copy_value(value, parsed.value, parsed.quote);
    return new (block) a_db_option{nullptr, key, value};
}

void report_key(std::string_view key, char* buf, size_t len) {
    if (buf == nullptr || len == 0) return;
    const size_t count = std::min(key.size(), len - 1);
    std::memcpy(buf, key.data(), count);
    buf[count] = '\0';
}

/// Counts everything that is put, and keeps what fits.
class Writer {
  public:
    Writer(char* buf, size_t len) : _buf(buf), _len(len) {}

    void Put(char c) {
        // One byte stays for the terminator.
        if (_count + 1 < _len) _buf[_count] = c;
        ++_count;
    }
    void Put(std::string_view text) {
        for (char c : text) Put(c);
    }
    size_t Finish() {
        if (_len > 0) _buf[std::min(_count, _len - 1)] = '\0';
        return _count;
    }

  private:
    char* _buf;
    size_t _len;
    size_t _count = 0;
};

void put_value(Writer& out, std::string_view value) {
    // Quoted only where it would be read back as something else.
    const bool plain = value.find(separator) == std::string_view::npos && trimmed(value) == value &&
                       (value.empty() || !is_quote(value.front()));
    if (plain) return out.Put(value);
    out.Put('\'');
    for (char c : value) {
        out.Put(c);
        if (c == '\'') out.Put(c);
    }
    out.Put('\'');
}

}  // namespace

a_bool db_parse_options(const char* text, a_db_option** list, char* bad_key, size_t bad_key_len) {
    *list = nullptr;
    a_db_option** tail = list;
    Parser parser(text != nullptr ? text : "");
    while (parser.More()) {
        if (!parser.Next()) {
            report_key(parser.key, bad_key, bad_key_len);
            db_free_options(*list);
            *list = nullptr;
            return false;
        }
        *tail = new_option(parser);
        tail = &(*tail)->next;
    }
    return true;
}

void db_free_options(a_db_option* list) {
    while (list != nullptr) {
        a_db_option* next = list->next;
        // It may be a password.
        ut_wipe(const_cast<char*>(list->value), std::strlen(list->value));
        ut_free(list);
        list = next;
    }
}

const a_db_option* db_find_option(const a_db_option* list, const char* key) {
    while (list != nullptr && !ut_equal_nocase(list->key, key)) list = list->next;
    return list;
}

size_t db_format_options(const a_db_option* list, char* buf, size_t len) {
    Writer out(buf, len);
    for (const a_db_option* option = list; option != nullptr; option = option->next) {
        if (option != list) out.Put(separator);
        out.Put(option->key);
        out.Put(assign);
        put_value(out, option->value);
    }
    return out.Finish();
}
