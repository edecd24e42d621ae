#include "host/outbox/pauses.h"

#include <algorithm>

#include <sys/random.h>

namespace host::outbox {

std::chrono::milliseconds Pauses::after(std::uint32_t failures, std::uint32_t random) const {
    using Count = std::chrono::milliseconds::rep;
    // Doubled without leaving the range of the type.
    Count pause = std::min(first, longest).count();
    for (std::uint32_t i = 1; i < failures && pause < longest.count(); ++i)
        pause = pause > longest.count() / 2 ? longest.count() : pause * 2;
    const Count quarter = pause / 4;
    return std::chrono::milliseconds(pause - quarter +
                                     static_cast<Count>(random) % (2 * quarter + 1));
}

std::chrono::milliseconds Pauses::after(std::uint32_t failures) const {
    // Without it all pauses are a quarter short, which harms nothing.
    std::uint32_t random = 0;
    if (getrandom(&random, sizeof random, GRND_NONBLOCK) < 0) random = 0;
    return after(failures, random);
}

}  // namespace host::outbox
