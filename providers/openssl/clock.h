#ifndef QUOREL_PROVIDERS_OPENSSL_CLOCK_H
#define QUOREL_PROVIDERS_OPENSSL_CLOCK_H

/// The clocks and the sleep of the provider, in a source of their own so that a program which
/// drives the provider by a time of its own can bring others.

#include <cstdint>

/// Microseconds since some moment; never goes back.
int64_t monotonic_us();

/// Seconds since 1970, leap seconds not counted; past 2038 as well, on any machine.
int64_t calendar_s();

/// Sleeps for less than a second; a signal may end it early.
void sleep_us(int64_t span);

#endif
