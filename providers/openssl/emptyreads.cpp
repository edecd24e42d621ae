#include "providers/openssl/emptyreads.h"

#include <algorithm>
#include <time.h>

namespace {

int64_t now_us() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

}  // namespace

void EmptyReads::wait() {
    if (exhausted()) return;
    const int64_t start = now_us();
    const int64_t span = std::min(_next_us, limit_us - _slept_us);
    const timespec duration = {0, static_cast<long>(span * 1000)};
    nanosleep(&duration, nullptr);  // a signal that ends it early does no harm
    _slept_us += now_us() - start;
    _next_us = std::min(2 * _next_us, longest_us);
}
