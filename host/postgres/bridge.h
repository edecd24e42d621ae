#ifndef QUOREL_HOST_POSTGRES_BRIDGE_H
#define QUOREL_HOST_POSTGRES_BRIDGE_H

/* The procedures for the server's C code, which must not jump over a C++ frame: nothing here raises
 * an error of the server's or throws, and no function returns while code of the other language is
 * under way below it. Every function is for the backend's own thread.
 *
 * Texts are in the encoding of the database, to and fro. Those that come from here end with a zero
 * byte and last as long as their call.
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What SQL gives or gets. */
typedef enum QuorelType {
    QUOREL_VOID,
    QUOREL_NUMBER, /* integer */
    QUOREL_TEXT,
    QUOREL_BYTES, /* bytea, or text whose encoding is nobody's business */
    QUOREL_TEXTS  /* text[] */
} QuorelType;

/* Procedures are known by their place in the extension's script, which declares the SQL arguments
 * in this order, numbered from 0. QUOREL_TEXTS stands for as many parameters as are left. */
const char* quorel_procedure_name(int procedure);
QuorelType quorel_argument_type(int procedure, int argument);
QuorelType quorel_result_type(int procedure);

/* One status of the procedure called `name` in words; null where there is no such procedure. */
const char* quorel_status_words(const char* name, int32_t status);

/* The settings, as they are for one call. */
typedef struct QuorelFolders {
    const char* setting;        /* its name, for messages */
    const char* const* folders; /* absolute; those that hold the files which calls may name */
    size_t count;               /* 0: any file */
} QuorelFolders;

typedef struct QuorelSettings {
    const char* library; /* empty: the one beside the module */
    bool in_worker;
    int deadline; /* milliseconds; 0: none */
    bool allow_plaintext_auth;
    QuorelFolders read_paths;
    QuorelFolders write_paths;
    const char* scratch; /* a folder for files that do not outlive the server; it need not exist */
    int32_t connection;  /* the backend's number */
} QuorelSettings;

/* What a running call asks of the server. None of it may raise an error. */
typedef struct QuorelServer {
    /* True: the call is to end. Asked every 25 ms or so: of a call in the worker on the backend's
     * thread, of a command in this process on one of the bridge's, which blocks all signals. */
    bool (*attend)(void);
    bool (*should_stop)(void);
    /* Takes a piece of a QUOREL_BYTES result; `append` false starts it anew. False: no more. */
    bool (*take)(void* sink, const void* bytes, size_t length, bool append);
    void* sink;
} QuorelServer;

typedef enum QuorelOutcome {
    QUOREL_DONE,
    QUOREL_BAD_ARGUMENT, /* nothing was called */
    QUOREL_FORBIDDEN,    /* a setting is against it; nothing was called */
    QUOREL_UNAVAILABLE,  /* the library, or its worker, is not there; nothing was called */
    QUOREL_TOO_LONG,     /* ended at its deadline */
    QUOREL_ENDED,        /* cancelled, or the worker died */
    QUOREL_DOUBTFUL      /* status 0, and a file speaks against it */
} QuorelOutcome;

typedef struct QuorelCall QuorelCall;

/* A call, to be given its arguments, run once and ended. Null without memory. `settings` and
 * `server` stay as they are until it has run. */
QuorelCall* quorel_begin(int procedure, const QuorelSettings* settings, const QuorelServer* server);
void quorel_end(QuorelCall* call);

/* Gives SQL argument `argument`, an element of QUOREL_TEXTS at a time: `bytes` null is NULL. They
 * are not copied, and stay as they are until the call is ended. What is wrong with a value,
 * quorel_run() tells. */
void quorel_give(QuorelCall* call, int argument, const char* bytes, size_t length);
void quorel_give_number(QuorelCall* call, int argument, int32_t number);

/* For `take`: the size of the file that the call reads, if it has one that is known; otherwise 0.
 * It may have changed. */
uint64_t quorel_expected_size(const QuorelCall* call);

QuorelOutcome quorel_run(QuorelCall* call);

/* After quorel_run(). Words for an outcome but QUOREL_DONE, and what to do about it; after
 * QUOREL_DONE, what to know about a call that was made all the same. The last two are null where
 * there is nothing to say. */
const char* quorel_message(const QuorelCall* call);
const char* quorel_hint(const QuorelCall* call);
const char* quorel_warning(const QuorelCall* call);

/* After QUOREL_DONE. A value of the result: null where it is NULL. */
bool quorel_number(const QuorelCall* call, int32_t* number);
const char* quorel_text(const QuorelCall* call, size_t* length);
/* QUOREL_BYTES: false for NULL. The bytes have gone to `take`. */
bool quorel_has_bytes(const QuorelCall* call);
/* QUOREL_TEXTS: -1 for NULL. */
int quorel_text_count(const QuorelCall* call);
const char* quorel_text_at(const QuorelCall* call, int index, size_t* length);

/* For a backend that ends: stops its mail sessions, waiting a second for their servers, and lets
 * its worker leave, if it has any. */
void quorel_leave(void);

#ifdef __cplusplus
}
#endif

#endif
