#ifndef QUOREL_HOST_OUTBOX_ACCOUNTCHOICE_H
#define QUOREL_HOST_OUTBOX_ACCOUNTCHOICE_H

#include <span>
#include <vector>

#include "host/outbox/store.h"

namespace host::outbox {

/// The accounts that a delivery may go through, the first one to be tried first: its own, or all in
/// order of rank, beginning behind the one that its last attempt went through. `accounts` are in
/// order of rank.
[[nodiscard]] std::vector<Account*> ways_for(const Delivery& delivery, std::span<Account> accounts);

/// How many rounds through its accounts the delivery will have been on once its attempt through
/// `account` has failed, where that ends one; 0 where another account of the round is left that
/// could be used.
[[nodiscard]] unsigned rounds_after(const Delivery& delivery, const Account& account,
                                    std::span<const Account> accounts);

}  // namespace host::outbox

#endif
