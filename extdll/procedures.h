#ifndef QUOREL_EXTDLL_PROCEDURES_H
#define QUOREL_EXTDLL_PROCEDURES_H

/// The exported procedures. Each is called by a host through the call frame of extdll/extfn.h, from
/// any thread; calls share nothing. "Not set" means that set_value is never called for that number.

#include "extdll/extfn.h"

extern "C" {

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
/// record meanwhile.
an_extfn_proc xp_cmdshell;

#pragma GCC visibility pop
}

#endif
