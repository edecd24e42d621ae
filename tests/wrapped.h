#ifndef QUOREL_TESTS_WRAPPED_H
#define QUOREL_TESTS_WRAPPED_H

// For tests that replace system calls (quorel_wrap in cmake/QuorelTargets.cmake) and define them as
// __wrap_<call>: where a 32-bit build has times of 64 bits, the C library has calls of other names
// for everything that may carry a time.

#include <features.h>

#ifdef __USE_TIME_BITS64
#define __wrap_getsockopt __wrap___getsockopt64
#define __real_getsockopt __real___getsockopt64
#define __wrap_ioctl __wrap___ioctl_time64
#define __real_ioctl __real___ioctl_time64
#define __wrap_setsockopt __wrap___setsockopt64
#define __real_setsockopt __real___setsockopt64
#define __wrap_stat64 __wrap___stat64_time64
#define __real_stat64 __real___stat64_time64
#define __wrap_time __wrap___time64
#endif

#endif
