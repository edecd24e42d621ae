#include "providers/openssl/clock.h"

#include <time.h>

int64_t monotonic_us() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

int64_t calendar_s() {
    return time(nullptr);
}

void sleep_us(int64_t span) {
    const timespec duration = {0, static_cast<long>(span * 1000)};
    nanosleep(&duration, nullptr);
}
