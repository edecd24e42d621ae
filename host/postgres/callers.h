#ifndef QUOREL_HOST_POSTGRES_CALLERS_H
#define QUOREL_HOST_POSTGRES_CALLERS_H

/* Who may call beyond the right to EXECUTE, which PostgreSQL checks of whoever uses an expression
 * and not of whoever wrote it. */

#include "postgres.h"

#include "fmgr.h"

/* Raises an error where a call of `procedure` does not come from a statement or a function: from
 * what the schema stores, from maintenance, which evaluates what a table's owner wrote, from a
 * dump, which should change nothing, and from a parallel worker. */
void quorel_refuse_strange_callers(FunctionCallInfo fcinfo, const char* procedure);

#endif
