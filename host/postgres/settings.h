#ifndef QUOREL_HOST_POSTGRES_SETTINGS_H
#define QUOREL_HOST_POSTGRES_SETTINGS_H

/* The extension's settings, which only superusers change. */

#include "postgres.h"

#include "host/postgres/bridge.h"

/* Makes them known to the server. */
void quorel_define_settings(void);

/* As they are now, in memory of the current context. May raise an error. */
QuorelSettings* quorel_current_settings(void);

#endif
