// Message formats: whatever a text says about its parameters, the result fits the buffer, is
// terminated, and a smaller buffer holds the beginning of what a larger one does.
//
// An input is a byte for the buffer's size, two whose bits say which parameters are null, and the
// format. Every parameter is passed as a string: in the 64-bit build that this runs in, each type
// takes one such argument, so that any type a format asks for finds one.

#include <array>
#include <cstring>
#include <memory>

#include "fuzz/fuzzed.h"
#include "utils/lang/utlangstring.h"

static_assert(sizeof(void*) == sizeof(long long));

namespace {

std::string formatted(UTLangStringBase& strings, const char* format, unsigned nulls, size_t len) {
    static constexpr std::array<const char*, 9> Values = {
        "", "x", "text", "%1 %%", "\xC3\xA9", "\xFF\xFE", "!d!", "long parameter of a text", "last",
    };
    const auto value = [nulls](unsigned i) { return (nulls >> i & 1) != 0 ? nullptr : Values[i]; };
    const std::unique_ptr<char[]> buf(new char[len]);
    const size_t length =
        strings.FormatMiscStr(buf.get(), len, format, value(0), value(1), value(2), value(3),
                              value(4), value(5), value(6), value(7), value(8));
    check(length < len && std::strlen(buf.get()) == length);
    return {buf.get(), length};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    static UTLangStringBase plain(locale);
    Input input(data, size);
    const size_t len = size_t{1} + input.byte();
    const unsigned nulls = input.byte(), more_nulls = input.byte() << 8;
    const std::string format = input.rest();

    const std::string whole = formatted(plain, format.c_str(), nulls | more_nulls, 2 * size + 256);
    const std::string cut = formatted(plain, format.c_str(), nulls | more_nulls, len);
    check(cut == whole.substr(0, len - 1));

    static UTLangStringBase converting(locale);
    converting.SetCharset(locale.GetOSCharset());
    converting.SetArgCharset(ls_find_charset("ISO-8859-1"));
    formatted(converting, format.c_str(), nulls | more_nulls, len);
    return 0;
}
