#include "extdll/scanformat.h"

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
    bool suppressed = false;
    int width = 0;  // 0: none
    std::string_view modifiers;
    char conversion = '\0';
    std::string_view set;  // of a "[": the characters up to and with the "]"

    [[nodiscard]] bool stores_characters() const {
        return conversion == 's' || conversion == 'c' || conversion == '[';
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

Verdict parse_directive(std::string_view& rest, Directive* directive) {
    if (take_position(rest, &directive->position)) {
        if (directive->position < 1 || directive->position > ScanFormat::buffers) {
            return Verdict::Refuse;
        }
    }
    directive->suppressed = take_any_of(rest, "*'I").find('*') != std::string_view::npos;
    directive->width = take_number(rest);
    directive->modifiers = take_any_of(rest, "hlqLjztmw");
    if (rest.empty()) return Verdict::Stop;
    directive->conversion = rest.front();
    rest.remove_prefix(1);
    if (directive->conversion == '[' && !take_set(rest, &directive->set)) return Verdict::Stop;
    return Verdict::Copy;
}

Verdict judge(const Directive& directive) {
    constexpr std::string_view numbers = "diouxXeEfFgGaApn";
    const bool wide = directive.conversion == 'S' || directive.conversion == 'C';
    if (directive.modifiers.find('m') != std::string_view::npos || wide) return Verdict::Refuse;
    if (directive.stores_characters()) {
        // Every modifier but "h" makes the C library store wide characters.
        const bool narrow = directive.modifiers.find_first_not_of('h') == std::string_view::npos;
        return narrow ? Verdict::Copy : Verdict::Refuse;
    }
    return numbers.find(directive.conversion) == std::string_view::npos ? Verdict::Stop
                                                                        : Verdict::Copy;
}

// The width that keeps a directive inside its buffer; 0 for none.
int safe_width(const Directive& directive) {
    if (!directive.stores_characters() || directive.suppressed) return directive.width;
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
        if (directive.position != 0) {
            put_number(directive.position);
            put('$');
        }
        if (directive.suppressed) put('*');
        if (const int width = safe_width(directive); width != 0) put_number(width);
        if (!directive.stores_characters()) put(directive.modifiers);
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
        if (take_char(rest, '%')) {
            out.put("%%");
            continue;
        }
        Directive directive;
        if (const Verdict verdict = parse_directive(rest, &directive); verdict != Verdict::Copy) {
            return verdict;
        }
        if (const Verdict verdict = judge(directive); verdict != Verdict::Copy) return verdict;
        if (!directive.suppressed && ++stored > ScanFormat::buffers) return Verdict::Refuse;
        out.put(directive);
    }
    return Verdict::Stop;
}

}  // namespace

ScanFormat::ScanFormat(const char* format) : _text(nullptr) {
    // A directive of two characters grows by at most the three digits of its new width.
    const std::size_t length = strlen(format);
    if (length > (SIZE_MAX - 1) / 3) return;
    auto* const text = static_cast<char*>(calloc(length * 3 + 1, 1));
    if (text == nullptr) return;
    FormatWriter out(text);
    if (write_safe_format(format, out) == Verdict::Refuse) {
        free(text);
        return;
    }
    _text = text;
}

ScanFormat::~ScanFormat() {
    free(_text);
}
