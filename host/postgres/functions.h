#ifndef QUOREL_HOST_POSTGRES_FUNCTIONS_H
#define QUOREL_HOST_POSTGRES_FUNCTIONS_H

#include "postgres.h"

#include "fmgr.h"

/* Calls a procedure with the SQL arguments of this call and gives its result. */
Datum quorel_call(FunctionCallInfo fcinfo, int procedure);

/* What the server looks up by the name in CREATE FUNCTION. */
#define QUOREL_ENTRY_POINT(name, procedure)    \
    PG_FUNCTION_INFO_V1(name);                 \
    Datum name(PG_FUNCTION_ARGS) {             \
        return quorel_call(fcinfo, procedure); \
    }

#endif
