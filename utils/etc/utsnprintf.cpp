#include "utils/etc/utsnprintf.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

std::size_t ut_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    if (size == 0) return 0;
    std::va_list arguments;
    va_start(arguments, format);
    const int wanted = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    // What stands in the buffer then is up to the C library.
    if (wanted < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return std::min(static_cast<std::size_t>(wanted), size - 1);
}
