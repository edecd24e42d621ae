#include "utils/lang/wlangfmt.h"

#include <climits>
#include <cstring>
#include <string>

#include <gmock/gmock.h>

#include "utils/etc/uttypes.h"

namespace {

size_t format_into(char* buf, size_t len, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const size_t length = wlangfmt(buf, len, format, args);
    va_end(args);
    return length;
}

template <class... Args>
std::string formatted(const char* format, Args... args) {
    char buf[256];
    const size_t length = format_into(buf, sizeof buf, format, args...);
    EXPECT_EQ(length, std::strlen(buf));
    return buf;
}

const char *const x = "x", *const y = "y";

}  // namespace

TEST(MessageFormat, every_suffix_takes_its_type) {
    EXPECT_EQ("x y x c ??\?", formatted("%1 %2!s! %3!at! %4!c! %5", x, y, x, 'c',
                                        static_cast<const char*>(nullptr)));
    EXPECT_EQ(
        "-2147483648 4294967295 000b abcde 0000beef",
        formatted("%1!d! %2!u! %3!4x! %4!4x! %5!8x!", INT_MIN, UINT_MAX, 0xBU, 0xABCDEU, 0xBEEFU));
    EXPECT_EQ("-9223372036854775808 18446744073709551615",
              formatted("%1!lld! %2!llu!", int64{INT64_MIN}, uint64{UINT64_MAX}));
}

TEST(MessageFormat, arguments_are_taken_by_number_and_type) {
    EXPECT_EQ("7 1099511627776 x", formatted("%3!u! %1!llu! %2", uint64{1} << 40, x, 7U));
    EXPECT_EQ("5", formatted("%2!d!", x, 5));  // number 1 is not named and takes a string
}

TEST(MessageFormat, only_the_last_place_of_a_number_is_replaced) {
    EXPECT_EQ("%1!d! x", formatted("%1!d! %1", x));
}

TEST(MessageFormat, other_text_is_copied_as_it_stands) {
    for (const char* text : {"100% sure", "%0 %x %!d!", "ends with %"})
        EXPECT_EQ(text, formatted(text));
    EXPECT_EQ("100% %1 %x %%", formatted("100%% %%1 %%%1 %%%%", x));
    EXPECT_EQ("x!q! y!D! z!dd!", formatted("%1!q! %2!D! %3!dd!", x, y, "z"));
}
