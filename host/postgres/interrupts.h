#ifndef QUOREL_HOST_POSTGRES_INTERRUPTS_H
#define QUOREL_HOST_POSTGRES_INTERRUPTS_H

/* What ends a call before its time. */

#include "postgres.h"

/* True when the statement or the connection is to end. Looks at flags alone. */
bool quorel_is_interrupted(void);

/* The same, or when the client or the postmaster has gone, which it asks the kernel. Calls nothing
 * of the server's, so that it raises no error and another thread may ask. */
bool quorel_should_stop(void);

/* The same for the backend's thread, which meanwhile does what other backends wait for it to do.
 * Raises no error. */
bool quorel_attend(void);

/* For after the call: raises the error or ends the process, if that is what quorel_should_stop()
 * has seen. */
void quorel_stop_if_due(void);

#endif
