#ifndef QUOREL_HOST_OUTBOX_STATUSTEXT_H
#define QUOREL_HOST_OUTBOX_STATUSTEXT_H

#include <span>
#include <string>

#include "host/outbox/store.h"

namespace host::outbox {

/// The outbox in words, a few lines for people.
[[nodiscard]] std::string status_text(const Figures& figures, std::span<const Account> accounts,
                                      std::span<const Trouble> troubles);

}  // namespace host::outbox

#endif
