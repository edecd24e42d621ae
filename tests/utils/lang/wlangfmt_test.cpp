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
    EXPECT_EQ(std::strlen(buf), length);
    return buf;
}

const char* const x = "x";
const char* const y = "y";

}  // namespace

TEST(MessageFormat, every_suffix_takes_its_type) {
    EXPECT_EQ(
        formatted("%1 %2!s! %3!at! %4!c! %5", x, y, x, 'c', static_cast<const char*>(nullptr)),
        "x y x c ??\?");
    EXPECT_EQ(
        formatted("%1!d! %2!u! %3!4x! %4!4x! %5!8x!", INT_MIN, UINT_MAX, 0xBU, 0xABCDEU, 0xBEEFU),
        "-2147483648 4294967295 000b abcde 0000beef");
    EXPECT_EQ(formatted("%1!ld! %2!lu!", LONG_MIN, ULONG_MAX),
              std::to_string(LONG_MIN) + " " + std::to_string(ULONG_MAX));
    EXPECT_EQ(formatted("%1!lld! %2!llu!", int64{INT64_MIN}, uint64{UINT64_MAX}),
              "-9223372036854775808 18446744073709551615");
}

TEST(MessageFormat, arguments_are_taken_by_number_and_type) {
    EXPECT_EQ(formatted("%3!u! %1!llu! %2", uint64{1} << 40, x, 7U), "7 1099511627776 x");
    EXPECT_EQ(formatted("%2!d!", x, 5), "5");  // number 1 is not named and takes a string
    EXPECT_EQ(formatted("%9%8%7%6%5%4%3%2%1", "1", "2", "3", "4", "5", "6", "7", "8", "9"),
              "987654321");
}

TEST(MessageFormat, only_the_last_place_of_a_number_is_replaced) {
    EXPECT_EQ(formatted("%1!d! %1", x), "%1!d! x");
    EXPECT_EQ(formatted("%1 %1!u!", 5U), "%1 5");
}

TEST(MessageFormat, other_text_is_copied_as_it_stands) {
    for (const char* text : {"", "100% sure", "%0 %x %!d!", "ends with %"}) {
        EXPECT_EQ(formatted(text), text);
    }
    EXPECT_EQ(formatted("100%% %%1 %%%1 %%%%", x), "100% %1 %x %%");
    EXPECT_EQ(formatted("%1!", x), "x!");
    EXPECT_EQ(formatted("%1!q! %2!D! %3!dd!", x, y, "z"), "x!q! y!D! z!dd!");
    EXPECT_EQ(formatted("%12", x), "x2");
}

TEST(MessageFormat, the_text_ends_one_byte_before_the_buffer_does) {
    const std::string whole = "ab<" + std::string("long string") + ">4294967295";
    for (size_t len = 1; len <= whole.size() + 2; ++len) {
        char* buf = new char[len];
        const size_t length = format_into(buf, len, "ab<%1>%2!u!", "long string", UINT_MAX);
        EXPECT_EQ(std::string(buf), whole.substr(0, len - 1));
        EXPECT_EQ(length, std::min(whole.size(), len - 1));
        delete[] buf;
    }
    char untouched[] = "#";
    EXPECT_EQ(format_into(untouched, 0, "%1", "x"), 0U);
    EXPECT_STREQ(untouched, "#");
}
