#include "providers/openssl/emptyreads.h"

#include <algorithm>

#include "providers/openssl/clock.h"

void EmptyReads::wait() {
    const int64_t left = patience_us - _slept_us;
    ++_reads;
    _gave_up = left <= 0 && _reads >= least_reads;
    if (_gave_up) return;
    const int64_t start = monotonic_us();
    sleep_us(left > 0 ? std::min(_next_us, left) : _next_us);
    // By the clock, since a signal may end a sleep early and a busy machine late.
    _slept_us += monotonic_us() - start;
    _next_us = std::min(2 * _next_us, longest_us);
}
