#ifndef QUOREL_PROVIDERS_OPENSSL_PAUSE_H
#define QUOREL_PROVIDERS_OPENSSL_PAUSE_H

/// The clock and the sleep of EmptyReads, in a source of their own so that a program which drives
/// the provider by a clock of its own can bring others.

#include <cstdint>

/// Microseconds since some moment; never goes back.
int64_t monotonic_us();

/// Sleeps for less than a second; a signal may end it early.
void sleep_us(int64_t span);

#endif
