#ifndef QUOREL_EXTDLL_PROCEDURES_H
#define QUOREL_EXTDLL_PROCEDURES_H

/// The exported procedures. Each is called by a host through the call frame of extdll/extfn.h, from
/// any thread; calls share nothing but the mail sessions, see there. "Not set" means that set_value
/// is never called for that number.
///
/// This header compiles as C11 and as C++. A host that looks procedures up by their names does not
/// need it.

#include "extdll/extfn.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/// xp_read_file(1 name) → 0: the file's bytes (EXTFN_TYPE_BINARY), in pieces of at most 32768.
/// NULL when the name is NULL or broken, the file cannot be opened or read, memory runs out, or the
/// host refuses a piece; not set when argument 1 cannot be read, and for an empty file.
an_extfn_proc xp_read_file;

/// xp_write_file(1 name, 2 contents) → 0: status, 0 when every byte was offered to the file,
/// else 1. The file is created with mode 0660 or rewritten from its start and cut to the new
/// length. An empty or NULL value gives 1 and leaves the file alone. A failing write is not
/// detected. Not set when argument 1 cannot be read.
an_extfn_proc xp_write_file;

/// xp_sprintf(1 OUT text, 2 format, 3 … 52 values): formats up to 50 strings (EXTFN_TYPE_STRING) as
/// printf(3) does, and cuts the text at 254 bytes. The first NULL value ends the list. The format
/// takes "%%" and string conversions with flags, width, precision and positions ("%2$-10.3s").
/// Argument 1 is NULL when an argument up to the first NULL value is missing or of another type,
/// and for a NULL format or one that holds anything else. The result is always NULL.
an_extfn_proc xp_sprintf;

/// xp_scanf(1 input, 2 format, 3 … 52 OUT values): splits the input as sscanf(3) does. Each value
/// is at most 254 bytes of EXTFN_TYPE_STRING; those not scanned, and all of them for a format with
/// wide or allocating conversions or more than 50, are NULL. Nothing is set when an input is NULL
/// or cannot be read. There is no result.
an_extfn_proc xp_scanf;

/// xp_cmdshell(1 command, 2 ignored) → 0: exit status of `/bin/sh -c command`; 2 when the shell
/// could not be started or waited for or was ended by a signal; 1 when the command is NULL,
/// unreadable or longer than 8000 bytes. Waits until the command ends; registers a cancellation
/// record meanwhile. The end of the command raises SIGCHLD in the host. One that ignores that
/// signal, or whose handler waits for every child, gets 2 for every command.
an_extfn_proc xp_cmdshell;

/// The mail procedures keep one session per connection number; calls without a number share a
/// default session. Calls on one session take turns, those on different sessions do not wait for
/// each other. Their status is 0, 2, 3, 5, 12, 15, 20, 25, 100, 101, 102, 104 or 105; quorel(7)
/// says what each means. 0 means that it was done; where memory ran out the status is 15, and the
/// server has not received a part of anything as if it were the whole.
///
/// xp_startsmtp(1 sender, 2 host, 3 port, 4 timeout in seconds, 5 sender_name, 6 auth_username,
/// 7 auth_password, 8 trusted_cert, 9 cert_company, 10 cert_unit, 11 cert_name, 12 connection
/// number) → 0: status. Defaults for NULL: sender "", port 25, timeout 60; without user or password
/// no login; with a trusted_cert the session is secured by TLS. A timeout of 0 or less means no
/// limit, and with a trusted_cert there is none whatever the timeout. Status 2 when one of the
/// first seven cannot be read, for a NULL host, and when one of 8 … 11 can be read only in part,
/// since what asked for TLS must not be lost.
/// Without argument 12, or with NULL there, argument 8 is the connection number, whatever its type,
/// and there is no TLS: a host always passes a number. A session that is open is closed first.
an_extfn_proc xp_startsmtp;

/// xp_sendmail(1 recipient, 2 subject, 3 cc_recipient, 4 bcc_recipient, 5 query, 6 message, 7 … 9,
/// 10 include_file, 11 … 16, 17 type, 18, 19 content_type, 20 connection number) → 0: status. The
/// first nineteen must exist; only values of EXTFN_TYPE_CHAR and EXTFN_TYPE_LONGCHAR count, others
/// are as NULL. Recipients are separated by ";". Arguments 5, 7 … 9 and 11 … 18 have no effect. The
/// include_file is opened before the server hears of the message: a file that cannot be read gives
/// 12 and nothing is sent.
an_extfn_proc xp_sendmail;

/// xp_stopsmtp(1 connection number) → 0: status.
an_extfn_proc xp_stopsmtp;

/// An older mail interface, which this platform does not offer: nothing is read and nothing set.
an_extfn_proc xp_startmail;
an_extfn_proc xp_stopmail;

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
