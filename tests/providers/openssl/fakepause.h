#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_FAKEPAUSE_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_FAKEPAUSE_H

/// The clock of the provider that is linked in: only its sleeps make time pass.

#include <atomic>
#include <cstdint>

struct a_fake_pause {
    std::atomic<int64_t> now_us = 0;
    std::atomic<int64_t> oversleep_us = 0;  // that each sleep takes longer
};
inline a_fake_pause fake_pause;

#endif
