#ifndef QUOREL_PROVIDERS_OPENSSL_EMPTYREADS_H
#define QUOREL_PROVIDERS_OPENSSL_EMPTYREADS_H

#include <cstdint>

/// Paces reads that bring nothing. Whether nothing has arrived yet or the peer is gone cannot be
/// told, so that patience has an end.
///
/// It ends with the first empty read after 1.9 seconds of sleep, which is about 2 seconds on a
/// machine that is not overloaded. Only the time slept here counts, not what passes between the
/// owner's calls. However long the sleeps turn out (a stopped process, a machine that was
/// suspended), it takes a number of empty reads too.
class EmptyReads {
  public:
    /// Something has arrived.
    void reset() { *this = EmptyReads(); }

    /// Nothing has: sleeps, the longer the more often, or gives up.
    void wait();

    bool gave_up() const { return _gave_up; }

  private:
    static constexpr int64_t patience_us = 1900000;
    static constexpr int least_reads = 20;
    static constexpr int64_t first_us = 1000, longest_us = 50000;

    int64_t _slept_us = 0;
    int64_t _next_us = first_us;
    int _reads = 0;
    bool _gave_up = false;
};

#endif
