// xp_sprintf and xp_scanf: printf(3) and scanf(3) over SQL strings, with formats that are not
// trusted.

#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

#include "extdll/extcall.h"
#include "extdll/printformat.h"
#include "extdll/procedures.h"
#include "extdll/scanformat.h"

namespace {

constexpr uint32 format_argument = 2;
constexpr uint32 first_value_argument = 3;
constexpr uint32 most_values = 50;
constexpr std::size_t text_size = 255;  // a formatted text or a scanned value with its terminator

static_assert(ScanFormat::buffers == most_values);
static_assert(ScanFormat::longest_value + 1 == text_size);

/// The arguments of xp_sprintf from the format on.
class FormatArguments {
  public:
    /// Reads up to the first NULL value; the values after it are empty strings and not asked for.
    bool read(const ExternalCall& call) {
        bool reading = true;
        for (uint32 i = 0; i < 1 + most_values; ++i) {
            _texts[i] = "";  // what a format that asks for more than was given finds
            if (!reading) continue;
            const auto outcome = _arguments[i].read(call, format_argument + i);
            const bool is_format = i == 0;
            if (_arguments[i].type() != EXTFN_TYPE_STRING) return false;
            if (outcome == TextArgument::Outcome::Null && !is_format) {
                reading = false;
            } else if (outcome != TextArgument::Outcome::Read) {
                return false;
            }
            _texts[i] = _arguments[i].text();
        }
        return true;
    }

    [[nodiscard]] const char* format() const { return _texts[0]; }
    [[nodiscard]] std::span<const char* const> values() const {
        return std::span(_texts).subspan(1);
    }

  private:
    TextArgument _arguments[1 + most_values];
    const char* _texts[1 + most_values] = {};
};

// Sets argument 1 to the formatted text. False when there is none.
bool set_formatted_text(const ExternalCall& call) {
    FormatArguments arguments;
    char text[text_size];
    std::size_t length = 0;
    if (!arguments.read(call)) return false;
    if (!format_strings(text, sizeof text, arguments.format(), arguments.values(), &length)) {
        return false;
    }
    call.set_string(1, text, static_cast<uint32>(length));
    return true;
}

/// The buffers that a scan stores into, all zero before it, so that whatever it stores is
/// terminated and nothing else ever shows.
struct ScannedValues {
    char text[most_values][text_size];
};

// sscanf with one pointer for each of the numbers in `Index`, which the C library can only take as
// separate arguments.
template <std::size_t... Index>
int scan_into(ScannedValues& values, const char* input, const char* format,
              std::index_sequence<Index...>) {
    return sscanf(input, format, values.text[Index]...);
}

// Number of values stored, 0 when nothing was or the format must not be used.
uint32 scan(ScannedValues& values, const char* input, const char* format) {
    const ScanFormat safe(format);
    if (safe.text() == nullptr) return 0;
    const int count =
        scan_into(values, input, safe.text(), std::make_index_sequence<most_values>());
    return count > 0 ? static_cast<uint32>(count) : 0;
}

}  // namespace

void xp_sprintf(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    if (!set_formatted_text(call)) call.set_null(1, EXTFN_TYPE_STRING);
    call.set_null(result_argument, EXTFN_TYPE_INT32);
}

void xp_scanf(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    TextArgument input;
    TextArgument format;
    if (input.read(call, 1) != TextArgument::Outcome::Read) return;
    if (format.read(call, format_argument) != TextArgument::Outcome::Read) return;

    ScannedValues values = {};
    const uint32 count = scan(values, input.text(), format.text());
    for (uint32 i = 0; i < most_values; ++i) {
        char* const text = values.text[i];
        const bool taken = i < count ? call.set_value(first_value_argument + i, EXTFN_TYPE_STRING,
                                                      text, static_cast<uint32>(strlen(text)))
                                     : call.set_null(first_value_argument + i, EXTFN_TYPE_STRING);
        if (!taken) return;
    }
}
