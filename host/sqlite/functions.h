#ifndef QUOREL_HOST_SQLITE_FUNCTIONS_H
#define QUOREL_HOST_SQLITE_FUNCTIONS_H

/// The procedures as SQL functions of a SQLite connection.

#include <cstdint>
#include <functional>
#include <memory>

#include "host/engine.h"

struct sqlite3;

/// Gives `db` every procedure of host/procedures.h as an SQL function of the same name. The SQL
/// arguments stand for the IN parameters in order; trailing ones that need not be given may be left
/// out, and the connection number is never given: it is `connection`.
///
///  - A procedure with a status returns it as an integer, one that returns bytes a BLOB or NULL.
///  - A procedure with one OUT parameter returns that value as text.
///  - A procedure with repeated OUT parameters is a table-valued function with one row for each
///    value that is not NULL, in the column `value`.
///  - Text that the library cut in the middle of a character ends before that character.
///
/// The functions work only in a statement of the program's own, never for a database's schema, and
/// not while a schema names them: host/sqlite/schemaguard.h has the rules. sqlite3_interrupt ends a
/// running command or a read, and anything where `engine` ends calls.
///
/// `on_progress`, unless it is empty, hears of each piece of a file that is read or written: how
/// many bytes of it have moved so far.
///
/// Closing `db` ends the mail session of `connection`, if it has one, as end_mail_sessions() of
/// host/mailsession.h does. Returns SQLITE_OK or SQLite's error code.
int quorel_sqlite_register(sqlite3* db, std::shared_ptr<const host::Engine> engine,
                           std::int32_t connection,
                           const std::function<void(std::uint64_t moved)>& on_progress = {});

/// A connection number that nobody in this process has: 1, 2, … (0 is the default mail session's).
/// Safe on any thread.
std::int32_t quorel_sqlite_next_connection();

#endif
