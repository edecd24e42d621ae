#include "extdll/printformat.h"

#include <cstring>
#include <string_view>

#include "extdll/formatscanner.h"
#include "utils/etc/utsnprintf.h"

namespace {

/// One string conversion, as far as it shows in the output.
struct Conversion {
    int position = 0;  // 0: the next value
    int width = 0;     // negative: on the left
    int precision = -1;
};

// Parses what follows the "%". The flags other than "-" have no effect on strings.
bool parse_conversion(std::string_view& rest, Conversion* conversion) {
    if (take_position(rest, &conversion->position) && conversion->position == 0) return false;
    const std::string_view flags = take_any_of(rest, "-+ #0'I");
    conversion->width = take_number(rest);
    if (flags.find('-') != flags.npos) conversion->width = -conversion->width;
    // A point without digits is a precision of 0 (printf(3)).
    if (take_char(rest, '.')) conversion->precision = take_number(rest);
    return take_char(rest, 's');
}

/// Hands out the values that conversions ask for, by number or one after the other, never both.
class ValuePicker {
  public:
    explicit ValuePicker(std::span<const char* const> values) : _values(values) {}

    bool pick(int position, const char** value) {
        const bool by_number = position != 0;
        // POSIX leaves open what a format with both kinds does.
        if (_count > 0 && by_number != _by_number) return false;
        _by_number = by_number;
        ++_count;
        const std::size_t index = by_number ? static_cast<std::size_t>(position) : _count;
        if (index > _values.size()) return false;
        *value = _values[index - 1];
        return true;
    }

  private:
    std::span<const char* const> _values;
    std::size_t _count = 0;
    bool _by_number = false;
};

/// A terminated text in a fixed buffer; what does not fit is dropped.
class BoundedText {
  public:
    BoundedText(char* buffer, std::size_t size) : _buffer(buffer), _size(size) {
        _buffer[0] = '\0';
    }

    [[nodiscard]] std::size_t length() const { return _length; }

    void append(char c) {
        if (_length + 1 >= _size) return;
        _buffer[_length++] = c;
        _buffer[_length] = '\0';
    }

    void append(const Conversion& conversion, const char* value) {
        // By a format of our own, in which a value can do nothing but be copied.
        _length += ut_snprintf(_buffer + _length, _size - _length, "%*.*s", conversion.width,
                               conversion.precision, value);
    }

  private:
    char* _buffer;
    std::size_t _size;
    std::size_t _length = 0;
};

}  // namespace

a_bool format_strings(char* buffer, std::size_t size, const char* format,
                      std::span<const char* const> values, std::size_t* length) {
    // One conversion at a time, and each rebuilt from what was understood of it: the C library
    // never sees the format, which might have it store a count or read a value that nobody gave.
    BoundedText text(buffer, size);
    ValuePicker picker(values);
    std::string_view rest = format;
    while (!rest.empty()) {
        const char c = rest.front();
        rest.remove_prefix(1);
        if (c != '%' || take_char(rest, '%')) {
            text.append(c);
            continue;
        }
        Conversion conversion;
        const char* value = nullptr;
        if (!parse_conversion(rest, &conversion)) return false;
        if (!picker.pick(conversion.position, &value)) return false;
        text.append(conversion, value);
    }
    *length = text.length();
    return true;
}
