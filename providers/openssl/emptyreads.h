#ifndef QUOREL_PROVIDERS_OPENSSL_EMPTYREADS_H
#define QUOREL_PROVIDERS_OPENSSL_EMPTYREADS_H

#include <cstdint>

/// Paces reads that bring nothing, be it that nothing has arrived yet or that the peer is gone:
/// which of them cannot be told, so that patience has an end. Only the time slept here counts, not
/// what passes between the owner's calls.
class EmptyReads {
  public:
    /// Something has arrived.
    void reset() { *this = EmptyReads(); }

    /// Nothing has: sleeps, the longer the more often, unless patience is at its end.
    void wait();

    bool exhausted() const { return _slept_us >= limit_us; }

  private:
    static constexpr int64_t limit_us = 1900000;  // whatever the owner does ends within 2 seconds
    static constexpr int64_t first_us = 1000, longest_us = 50000;

    int64_t _slept_us = 0;
    int64_t _next_us = first_us;
};

#endif
