#ifndef QUOREL_EXTDLL_EXTFN_H
#define QUOREL_EXTDLL_EXTFN_H

/* The call frame between a database server (the host) and the procedures that this library exports.
 *
 * A host loads the library, checks extfn_use_new_api(), looks up a procedure by its plain name and
 * calls it as an an_extfn_proc with a table of callbacks and an opaque handle for this one call.
 * The procedure reads its arguments and writes its results only through the callbacks, on the
 * calling thread, and is done when it returns. It returns nothing, throws nothing and prints
 * nothing; without memory it ends in a status or NULL.
 *
 * Arguments are numbered from 1 in the order of the procedure's SQL declaration; number 0 is the
 * procedure's result. An OUT parameter is written with its own number.
 *
 * Threads: a host may call any procedure from any number of threads at once, each call with a
 * handle of its own. The callbacks of one call are called on the thread that made it. extfn_cancel
 * may be called from any thread while the call that registered the record is running.
 *
 * This header compiles as C11 and as C++; it is all that a host includes.
 */

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Data type code of a value. The codes are the server's; these are the ones the library uses. */
typedef uint16_t a_sql_data_type;

enum {
    EXTFN_TYPE_CHAR = 448,     /* character string; strings of the mail procedures          */
    EXTFN_TYPE_STRING = 452,   /* character string; strings of the format procedures        */
    EXTFN_TYPE_LONGCHAR = 456, /* character string; accepted where EXTFN_TYPE_CHAR is        */
    EXTFN_TYPE_INT32 = 496,    /* data points at an int32_t; every status result             */
    EXTFN_TYPE_BINARY = 528    /* bytes; the contents that xp_read_file returns              */
};

/* One value, or one piece of it. Strings carry no terminator. */
typedef struct an_extfn_value {
    /* The bytes of this piece; null is the SQL NULL value whatever the lengths say.
     * Read: the memory is the host's and stays readable until the procedure's next get_value or
     * get_piece call. Written: the memory is the procedure's, which reuses or frees it as soon as
     * set_value returns, so the host copies it during that call. */
    void* data;

    uint32_t piece_len; /* bytes in this piece */

    /* One word under two names. Read: the length in bytes of the whole value. Written: not set
     * except by xp_sprintf, so a host relies on piece_len and the append flag alone. */
    union {
        uint32_t total_len;
        uint32_t remain_len;
    };

    /* Read: the argument's declared type. Written: the type of the value handed over. */
    a_sql_data_type type;
} an_extfn_value;

/* The callbacks that a host provides. Each returns non-zero for success. */
typedef struct an_extfn_api {
    /* Fills *value with the first piece of argument arg_num. 0 when the argument does not exist or
     * cannot be read. */
    int16_t (*get_value)(void* arg_handle, uint32_t arg_num, an_extfn_value* value);

    /* Fills *value with the piece of argument arg_num that starts at byte `offset` of the whole
     * value. A successful call delivers at least one byte. */
    int16_t (*get_piece)(void* arg_handle, uint32_t arg_num, an_extfn_value* value,
                         uint32_t offset);

    /* Takes a value for argument arg_num (0: the result). append 0 starts the value, replacing one
     * that was set before; non-zero adds value->piece_len bytes to it. 0 refuses: the procedure
     * then hands over nothing more of this value.
     *
     * A host that offers xp_cmdshell must watch for a call from another process: a shell that
     * could not be executed comes back through set_value in the forked child. Such a call (getpid()
     * differs from the process id of the call) must end the child with _exit(127). */
    int16_t (*set_value)(void* arg_handle, uint32_t arg_num, an_extfn_value* value, int16_t append);

    /* Registers a record that extfn_cancel understands, when the procedure starts something that
     * can be cancelled. The record was allocated with malloc and now belongs to the host, which
     * must not pass it to extfn_cancel after the procedure has returned and then frees it. */
    void (*set_cancel)(void* arg_handle, void* cancel_handle);
} an_extfn_api;

/* Every exported procedure. */
typedef void an_extfn_proc(an_extfn_api* api, void* arg_handle);

/* What a cancellation record cancels. */
typedef enum a_cancel_fn {
    CANCEL_CMDSHELL = 0 /* the command that xp_cmdshell is waiting for */
} a_cancel_fn;

/* The record that set_cancel hands to the host, which may read it and does not change it. */
typedef struct a_cancel_info {
    a_cancel_fn fn;
    union {
        void* cmdshell;
        pid_t cmd_pid; /* CANCEL_CMDSHELL: process id of the shell */
    } handle;
} a_cancel_info;

/* Version of this calling interface that the library speaks: 2. */
#define EXTFN_API_VERSION 2U

typedef uint32_t an_extfn_use_new_api_fn(void);
typedef void an_extfn_cancel_fn(void* cancel_handle);

/* Returns EXTFN_API_VERSION. A host that gets anything else, or does not find the symbol, must not
 * call the procedures. Safe on any thread. */
__attribute__((visibility("default"))) an_extfn_use_new_api_fn extfn_use_new_api;

/* Cancels what a running procedure registered: ends the shell of xp_cmdshell with SIGKILL, but not
 * what it has started, after which that call returns by itself. A null record, one of an unknown
 * kind, and one with a process id below 1, which would be a whole process group, is ignored.
 * Reports nothing, frees nothing. Safe on any thread and in a signal handler. */
__attribute__((visibility("default"))) an_extfn_cancel_fn extfn_cancel;

#ifdef __cplusplus
}
#endif

#if UINTPTR_MAX == 0xFFFFFFFFU
#ifdef __cplusplus
static_assert(sizeof(an_extfn_value) == 16, "the host's layout of a value");
static_assert(sizeof(an_extfn_api) == 16, "the host's layout of the callbacks");
static_assert(sizeof(a_cancel_info) == 8, "the host's layout of a cancellation record");
#else
_Static_assert(sizeof(an_extfn_value) == 16, "the host's layout of a value");
_Static_assert(sizeof(an_extfn_api) == 16, "the host's layout of the callbacks");
_Static_assert(sizeof(a_cancel_info) == 8, "the host's layout of a cancellation record");
#endif
#endif

#endif
