#include "host/postgres/interrupts.h"

#include <poll.h>
#include <unistd.h>

/* Without these a port is the same record, but for the types of two pointers, and their headers
 * need not be there. */
#undef ENABLE_GSS
#undef USE_OPENSSL
#undef USE_SSL

#include "libpq/libpq-be.h"
#include "miscadmin.h"
#include "storage/procsignal.h"

/* Set once a call was told to stop, perhaps by another thread. */
static volatile sig_atomic_t stopped = false;

/* What CHECK_FOR_INTERRUPTS() would raise. */
bool quorel_is_interrupted(void) {
    if (!InterruptPending || InterruptHoldoffCount != 0 || CritSectionCount != 0) return false;
#if PG_VERSION_NUM >= 170000
    if (TransactionTimeoutPending) return true;
#endif
    return ProcDiePending || ClientConnectionLost ||
           (QueryCancelPending && QueryCancelHoldoffCount == 0);
}

static bool client_has_gone(void) {
    struct pollfd client;

    if (MyProcPort == NULL) return false; /* a background worker */
    client.fd = MyProcPort->sock;
    client.events = POLLRDHUP;
    client.revents = 0;
    return poll(&client, 1, 0) > 0;
}

static bool postmaster_has_gone(void) {
    return IsUnderPostmaster && getppid() != PostmasterPid;
}

bool quorel_should_stop(void) {
    if (quorel_is_interrupted() || client_has_gone() || postmaster_has_gone()) stopped = true;
    return stopped;
}

/* Such as closing files of a database that is being dropped. What fails is tried again after the
 * call, where its error can be raised. */
static void do_what_others_wait_for(void) {
    const MemoryContext context = CurrentMemoryContext;

    PG_TRY();
    { ProcessProcSignalBarrier(); }
    PG_CATCH();
    {
        MemoryContextSwitchTo(context);
        FlushErrorState();
    }
    PG_END_TRY();
}

bool quorel_attend(void) {
    if (ProcSignalBarrierPending && InterruptHoldoffCount == 0 && CritSectionCount == 0)
        do_what_others_wait_for();
    return quorel_should_stop();
}

void quorel_stop_if_due(void) {
    const bool was_stopped = stopped;

    stopped = false;
    CHECK_FOR_INTERRUPTS();
    if (!was_stopped) return;
    if (postmaster_has_gone())
        ereport(FATAL, (errcode(ERRCODE_ADMIN_SHUTDOWN),
                        errmsg("terminating connection due to unexpected postmaster exit")));
    if (client_has_gone()) {
        ClientConnectionLost = true;
        InterruptPending = true;
        CHECK_FOR_INTERRUPTS();
    }
}
