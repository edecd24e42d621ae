#ifndef QUOREL_HOST_OUTBOX_OUTGOING_H
#define QUOREL_HOST_OUTBOX_OUTGOING_H

#include <string>

#include "host/compose/composer.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// Composes a message of the outbox for `account`, whose sender it has unless it names its own. Its
/// date is that of its queueing, so that all its attempts give the same message but for the
/// boundaries of its parts. The texts and attachments of `message` are freed once they are
/// composed. As host::compose().
Composing compose_outgoing(Message& message, const Account& account, ComposedMail& composed,
                           std::string& error);

}  // namespace host::outbox

#endif
