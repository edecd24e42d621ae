#ifndef QUOREL_HOST_OUTBOX_PGSTATEMENTS_H
#define QUOREL_HOST_OUTBOX_PGSTATEMENTS_H

#include <cstddef>

#include "host/outbox/pgconnection.h"

namespace host::outbox {

/// What the store asks PostgreSQL. Lengths of time are milliseconds; arrays of one statement are
/// parallel.
namespace pg {

extern const PgStatement take_back;         ///< limit, why
extern const PgStatement claim;             ///< limit, lease
extern const PgStatement read_messages;     ///< ids; in binary form
extern const PgStatement read_attachments;  ///< ids of messages; in binary form
extern const PgStatement read_piece;        ///< attachment, offset from 1 on; in binary form
extern const PgStatement end_claims;
extern const PgStatement end_attempts;
extern const PgStatement lock_accounts;   ///< names
extern const PgStatement start_attempts;  ///< deliveries, tokens, accounts, lease, daemon
extern const PgStatement renew;           ///< deliveries, tokens, lease
extern const PgStatement read_accounts;
extern const PgStatement note_away;   ///< name, pause, why
extern const PgStatement note_probe;  ///< name, pause
extern const PgStatement note_back;   ///< name
extern const PgStatement first_due;
extern const PgStatement read_figures;
extern const PgStatement read_troubles;  ///< limit
extern const PgStatement listen;
extern const PgStatement unlisten;

/// Bytes of an attachment that come at once.
inline constexpr std::size_t piece_bytes = 1 << 20;

}  // namespace pg

}  // namespace host::outbox

#endif
