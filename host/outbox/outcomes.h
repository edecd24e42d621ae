#ifndef QUOREL_HOST_OUTBOX_OUTCOMES_H
#define QUOREL_HOST_OUTBOX_OUTCOMES_H

#include "host/outbox/store.h"

namespace host::outbox {

/// The state that a delivery is in after its claim ended this way.
[[nodiscard]] constexpr const char* state_after(Outcome outcome) {
    if (outcome == Outcome::Sent) return "sent";
    return outcome == Outcome::Failed ? "failed" : "queued";
}

/// When it is due then; nothing: when it was.
[[nodiscard]] constexpr std::optional<Pause> due_after(const Finish& end) {
    if (end.outcome == Outcome::Split) return Pause(0);
    if (end.outcome == Outcome::Again) return end.pause;
    if (end.outcome == Outcome::Released && end.pause.count() > 0) return end.pause;
    return std::nullopt;
}

/// Why a claim was taken back.
inline constexpr const char* lost_claim = "the last claim came to no end";

}  // namespace host::outbox

#endif
