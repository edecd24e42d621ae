#ifndef QUOREL_HOST_OUTBOX_SHARED_H
#define QUOREL_HOST_OUTBOX_SHARED_H

#include "host/outbox/circuits.h"
#include "host/outbox/counters.h"
#include "host/outbox/journal.h"
#include "host/outbox/pauses.h"
#include "host/outbox/room.h"
#include "host/outbox/watch.h"

namespace host::outbox {

struct Rules {
    bool once = false;  ///< ends when nothing is due
    Pause lease = std::chrono::seconds(60);
    Pauses retries{std::chrono::seconds(30), std::chrono::hours(1)};  ///< of a message
    Pauses calls{std::chrono::seconds(5), std::chrono::minutes(15)};  ///< at a server that is away
    Pause idle = std::chrono::seconds(10);  ///< after which a mail session is closed
};

/// In bytes, of a mail's texts and attachments: more than mail servers take. A mail is about three
/// times in memory while it is composed and sent, and the process may be of 32 bits; so this is
/// also what large mails have in all sessions together.
inline constexpr std::uint64_t most_sent = std::uint64_t{128} << 20;

/// What the sessions of a process have in common.
struct Shared {
    explicit Shared(const Rules& its_rules) : rules(its_rules) {}

    const Rules rules;
    Watch watch;
    Circuits circuits;
    Counters counters;
    Journal journal;
    Room large_mails{most_sent};
};

}  // namespace host::outbox

#endif
