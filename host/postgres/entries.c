/* A function of the server's for each procedure, which the build writes from their table. */

#include "host/postgres/functions.h"

#include "entries.inc"
