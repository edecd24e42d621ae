#ifndef QUOREL_HOST_POSTGRES_RECEIVED_H
#define QUOREL_HOST_POSTGRES_RECEIVED_H

/* A bytea that comes in pieces. */

#include "postgres.h"
#if PG_VERSION_NUM >= 160000
#include "varatt.h"
#endif

typedef enum ReceivedEnd { RECEIVED_ALL, RECEIVED_TOO_LONG, RECEIVED_NO_MEMORY } ReceivedEnd;

typedef struct Received {
    MemoryContext owner; /* of the memory that it takes */
    Size expected;       /* bytes that are likely to come, or 0 */
    char* value;         /* a varlena without its header's length; null: nothing came */
    Size length;         /* with the header */
    Size capacity;
    ReceivedEnd end;
} Received;

/* Adds a piece; `append` false starts anew. False: no more, and `end` says why. Raises no error. */
bool quorel_receive(Received* received, const void* bytes, size_t length, bool append);

/* The value, which is no more its record's; empty when nothing came. */
bytea* quorel_received(Received* received);

#endif
