/* A procedure library that tries out the host's side. Its parameters: 1 IN, 2 OUT. */

#include <errno.h>
#include <semaphore.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "extdll/extfn.h"

#ifndef FAKE_VERSION
#define FAKE_VERSION EXTFN_API_VERSION
#endif

#define EXPORT __attribute__((visibility("default")))

typedef struct a_wait {
    sem_t cancelled;
    atomic_int touched; /* by a canceller, which is busy with the record after the call was woken */
} a_wait;

static atomic_int cancels;

uint32_t extfn_use_new_api(void) {
    return FAKE_VERSION;
}

void extfn_cancel(void* cancel_handle) {
    a_wait* const record = cancel_handle;
    atomic_fetch_add(&cancels, 1);
    sem_post(&record->cancelled);
    usleep(2000);
    atomic_store(&record->touched, 1);
    errno = ESRCH;
}

static int16_t set(an_extfn_api* api, void* handle, uint32_t number, const char* text,
                   int16_t append) {
    an_extfn_value value = {.data = (void*)text, .type = EXTFN_TYPE_STRING};
    if (text != NULL) value.piece_len = (uint32_t)strlen(text);
    return api->set_value(handle, number, &value, append);
}

static void set_status(an_extfn_api* api, void* handle, int32_t status) {
    an_extfn_value value = {.data = &status, .piece_len = sizeof status, .type = EXTFN_TYPE_INT32};
    api->set_value(handle, 0, &value, 0);
}

static a_wait* new_wait(void) {
    a_wait* const record = malloc(sizeof *record);
    if (record == NULL || sem_init(&record->cancelled, 0, 0) != 0) abort();
    atomic_init(&record->touched, 0);
    return record;
}

/* Spells the arguments that there are, but for NULLs, as the result, "1=text 2=5 ", until the host
 * refuses to take more; value 2 is the lengths of their pieces and the whole length with each. */
EXPORT void fake_spell(an_extfn_api* api, void* handle) {
    an_extfn_value value;
    char lengths[256] = "";
    set(api, handle, 0, "", 0);
    for (uint32_t number = 1; api->get_value(handle, number, &value) != 0; ++number) {
        char text[32];
        uint32_t offset = 0;
        if (value.data == NULL) continue;
        snprintf(text, sizeof text, "%u=", number);
        set(api, handle, 0, text, 1);
        do {
            const size_t used = strlen(lengths);
            snprintf(lengths + used, sizeof lengths - used, "%u/%u ", value.piece_len,
                     value.total_len);
            offset += value.piece_len;
            if (value.type == EXTFN_TYPE_INT32) {
                snprintf(text, sizeof text, "%d", *(const int32_t*)value.data);
                set(api, handle, 0, text, 1);
            } else if (api->set_value(handle, 0, &value, 1) == 0) {
                return;
            }
        } while (api->get_piece(handle, number, &value, offset) != 0);
        set(api, handle, 0, " ", 1);
    }
    set(api, handle, 2, lengths, 0);
}

/* Does what a host must refuse, and one thing that it must not, with a digit for each; value 2 is
 * started over for them, in pieces and from memory that is reused at once. */
EXPORT void fake_probe(an_extfn_api* api, void* handle) {
    an_extfn_value value;
    const int16_t answers[] = {
        api->get_value(handle, 0, &value),    api->get_value(handle, 3, &value),
        api->get_piece(handle, 1, &value, 4), set(api, handle, 1, "x", 0),
        set(api, handle, 3, "x", 0),          set(api, handle, 0, "x", 1),
        set(api, handle, 0, NULL, 0),         set(api, handle, 0, "x", 1)};
    char digits[] = "00000000";
    set(api, handle, 2, "old", 0);
    set(api, handle, 2, digits, 1);
    for (size_t i = 0; i < sizeof answers / sizeof *answers; ++i)
        if (answers[i] != 0) digits[i] = '1';
    set(api, handle, 2, digits, 0);
    memcpy(digits, "the end!", 8);
    set(api, handle, 2, digits, 1);
    memcpy(digits, "reused!!", 8);
}

/* Waits until it is cancelled, which it is ready for when value 2 is set. */
EXPORT void fake_wait(an_extfn_api* api, void* handle) {
    a_wait* const record = new_wait();
    api->set_cancel(handle, record);
    set(api, handle, 2, "ready", 0);
    sem_wait(&record->cancelled);
    set_status(api, handle, 2);
}

/* Registers two records and leaves. */
EXPORT void fake_brief(an_extfn_api* api, void* handle) {
    api->set_cancel(handle, new_wait());
    api->set_cancel(handle, new_wait());
    set_status(api, handle, 0);
}

EXPORT void fake_cancels(an_extfn_api* api, void* handle) {
    set_status(api, handle, atomic_load(&cancels));
}

/* The exit status of a child that hands over a value or, when argument 1 is not NULL, returns. */
EXPORT void fake_fork(an_extfn_api* api, void* handle) {
    an_extfn_value how;
    int status = 0;
    if (api->get_value(handle, 1, &how) == 0) return;
    const pid_t child = fork();
    if (child == 0) {
        if (how.data == NULL) set_status(api, handle, 1);
        return;
    }
    waitpid(child, &status, 0);
    set_status(api, handle, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

/* 1 when the thread that it runs on lets no signal in. */
EXPORT void xp_cmdshell(an_extfn_api* api, void* handle) {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, NULL, &blocked);
    set_status(api, handle, sigismember(&blocked, SIGINT) && sigismember(&blocked, SIGALRM));
}
