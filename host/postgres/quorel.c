/* The extension's module. */

#include "host/postgres/settings.h"

#include "fmgr.h"

PG_MODULE_MAGIC;

void _PG_init(void);

void _PG_init(void) {
    quorel_define_settings();
}
