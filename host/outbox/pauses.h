#ifndef QUOREL_HOST_OUTBOX_PAUSES_H
#define QUOREL_HOST_OUTBOX_PAUSES_H

#include <chrono>
#include <cstdint>

namespace host::outbox {

/// How long something that failed is left alone: twice as long each time, up to a longest pause,
/// and each a random part of up to a quarter shorter or longer, so that what failed together does
/// not come back together.
struct Pauses {
    std::chrono::milliseconds first;
    std::chrono::milliseconds longest;

    /// The pause after failure number `failures` in a row, from 1; `random` is any number.
    [[nodiscard]] std::chrono::milliseconds after(std::uint32_t failures,
                                                  std::uint32_t random) const;
    /// The same with a random number of its own.
    [[nodiscard]] std::chrono::milliseconds after(std::uint32_t failures) const;
};

}  // namespace host::outbox

#endif
