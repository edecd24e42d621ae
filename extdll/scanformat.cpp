#include "extdll/scanformat.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "extdll/formatscanner.h"
#include "utils/etc/utsnprintf.h"

namespace {

enum class Verdict {
    Copy,    // safe; go on
    Stop,    // the C library would stop scanning here
    Refuse,  // it would reach memory that is not a buffer, or allocate some
};

/// One directive after its "%", in the order in which scanf(3) takes its parts.
struct Directive {
    int position = 0;  // 0: the next buffer
    std::string_view flags;
    int width = 0;  // 0: none
    std::string_view modifier;
    char conversion = '\0';
    std::string_view set;  // of a "[": the characters up to and with the "]"

    [[nodiscard]] bool stores_characters() const {
        return conversion == 's' || conversion == 'c' || conversion == '[';
    }
    [[nodiscard]] bool needs_buffer() const {
        return conversion != '%' && flags.find('*') == flags.npos;
    }
};

// Takes the rest of "[...]": a "]" right after the "[" or "[^" is one of the set.
bool take_set(std::string_view& rest, std::string_view* set) {
    const std::size_t first = rest.substr(0, 1) == "^" ? 1 : 0;
    const std::size_t end = rest.find(']', first + 1);
    if (end == rest.npos) return false;
    *set = rest.substr(0, end + 1);
    rest.remove_prefix(set->size());
    return true;
}

// Takes one length modifier, the longest that is there.
std::string_view take_modifier(std::string_view& rest) {
    for (const std::string_view modifier : {"hh", "h", "ll", "l", "q", "L", "j", "z", "t"}) {
        if (!rest.starts_with(modifier)) continue;
        rest.remove_prefix(modifier.size());
        return modifier;
    }
    return {};
}

Verdict parse_directive(std::string_view& rest, Directive* directive) {
    if (take_position(rest, &directive->position)) {
        if (directive->position < 1 || directive->position > ScanFormat::buffers) {
            return Verdict::Refuse;
        }
    }
    directive->flags = take_any_of(rest, "*'I");
    directive->width = take_number(rest);
    directive->modifier = take_modifier(rest);
    if (rest.empty()) return Verdict::Stop;
    directive->conversion = rest.front();
    rest.remove_prefix(1);
    if (directive->conversion == '[' && !take_set(rest, &directive->set)) return Verdict::Stop;
    return Verdict::Copy;
}

Verdict judge(const Directive& directive) {
    constexpr std::string_view allocating_or_wide = "mSC";
    constexpr std::string_view harmless = "diouxXeEfFgGaApn%";  // numbers store a few bytes
    const auto is_one_of = [&](std::string_view set) {
        return set.find(directive.conversion) != set.npos;
    };
    if (is_one_of(allocating_or_wide)) return Verdict::Refuse;
    if (directive.stores_characters()) {
        // Every modifier but "h" and "hh" makes the C library store wide characters.
        const bool narrow = directive.modifier.find_first_not_of('h') == std::string_view::npos;
        return narrow ? Verdict::Copy : Verdict::Refuse;
    }
    return is_one_of(harmless) ? Verdict::Copy : Verdict::Stop;
}

// The width that keeps a directive inside its buffer; 0 for none.
int safe_width(const Directive& directive) {
    if (!directive.stores_characters() || !directive.needs_buffer()) return directive.width;
    if (directive.width == 0) return directive.conversion == 'c' ? 0 : ScanFormat::longest_value;
    return std::min(directive.width, ScanFormat::longest_value);
}

/// Writes the safe format; the buffer has room for whatever a format of its length turns into.
class FormatWriter {
  public:
    explicit FormatWriter(char* buffer) : _end(buffer) {}

    void put(char c) { *_end++ = c; }
    void put(std::string_view text) { _end = std::copy(text.begin(), text.end(), _end); }

    void put(const Directive& directive) {
        put('%');
        if (directive.conversion == '%') return put('%');
        if (directive.position != 0) {
            put_number(directive.position);
            put('$');
        }
        put(directive.flags);
        if (const int width = safe_width(directive); width != 0) put_number(width);
        if (!directive.stores_characters()) put(directive.modifier);
        put(directive.conversion);
        put(directive.set);
    }

  private:
    void put_number(int number) {
        char digits[12];
        put(std::string_view(digits, ut_snprintf(digits, sizeof digits, "%d", number)));
    }

    char* _end;
};

Verdict write_safe_format(std::string_view rest, FormatWriter& out) {
    int stored = 0;
    while (!rest.empty()) {
        const char c = rest.front();
        rest.remove_prefix(1);
        if (c != '%') {
            out.put(c);
            continue;
        }
        Directive directive;
        if (const Verdict verdict = parse_directive(rest, &directive); verdict != Verdict::Copy) {
            return verdict;
        }
        if (const Verdict verdict = judge(directive); verdict != Verdict::Copy) return verdict;
        if (directive.needs_buffer() && ++stored > ScanFormat::buffers) return Verdict::Refuse;
        out.put(directive);
    }
    return Verdict::Stop;
}

}  // namespace

ScanFormat::ScanFormat(const char* format) {
    // A directive of two characters grows by at most the three digits of its new width, so none
    // grows to more than three times its length.
    const std::size_t length = strlen(format);
    if (length > (SIZE_MAX - 1) / 3) return;
    const std::size_t size = length * 3 + 1;
    char* const text = size <= inline_size ? _inline : static_cast<char*>(malloc(size));
    if (text == nullptr) return;
    FormatWriter out(text);
    _text = text;
    if (write_safe_format(format, out) == Verdict::Refuse) {
        if (text != _inline) free(text);
        _text = nullptr;
        return;
    }
    out.put('\0');
}

ScanFormat::~ScanFormat() {
    if (_text != _inline) free(_text);
}
