/* A host on a page: reads a file with xp_read_file and sends its text with xp_sendmail.
 *
 *     host FILE                               prints the file
 *     host FILE SERVER PORT SENDER RECIPIENT  sends it as a message
 *
 * The library is found where the system has its libraries. A server does the same with the
 * arguments of an SQL call; see extdll/extfn.h for what it may rely on. This host offers no
 * xp_cmdshell, so it need not watch for a call from a child process. Of what SECURITY.md asks of a
 * host that takes texts from strangers it does one thing: line ends become CRLF.
 */

#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "extdll/extfn.h"

/* An argument; no data is NULL. */
typedef struct an_argument {
    a_sql_data_type type;
    const void* data;
    size_t length;
} an_argument;

/* One call: what the handle points at. */
typedef struct a_call {
    const an_argument* arguments;
    uint32_t count;
    an_argument result; /* the bytes are to be freed */
    void* cancel_record;
} a_call;

static an_argument text(const char* words) {
    return (an_argument){EXTFN_TYPE_CHAR, words, strlen(words)};
}

static an_argument number(const int32_t* value) {
    return (an_argument){EXTFN_TYPE_INT32, value, sizeof *value};
}

/* Each argument is one piece here. */
static int16_t get_value(void* handle, uint32_t arg_num, an_extfn_value* value) {
    const a_call* call = handle;
    if (arg_num < 1 || arg_num > call->count) return 0;
    const an_argument* argument = &call->arguments[arg_num - 1];
    value->data = (void*)argument->data; /* which the procedure only reads */
    value->piece_len = (uint32_t)argument->length;
    value->total_len = value->piece_len;
    value->type = argument->type;
    return value->total_len == argument->length;
}

static int16_t get_piece(void* handle, uint32_t arg_num, an_extfn_value* value, uint32_t offset) {
    (void)handle, (void)arg_num, (void)value, (void)offset;
    return 0;
}

static int16_t set_value(void* handle, uint32_t arg_num, an_extfn_value* value, int16_t append) {
    a_call* call = handle;
    if (arg_num != 0) return 0;
    if (!append) {
        free((void*)call->result.data);
        call->result = (an_argument){value->type, NULL, 0};
    }
    if (value->data == NULL) return 1;
    char* bytes = realloc((void*)call->result.data, call->result.length + value->piece_len + 1);
    if (bytes == NULL) return 0;
    memcpy(bytes + call->result.length, value->data, value->piece_len);
    call->result.data = bytes;
    call->result.length += value->piece_len;
    return 1;
}

static void set_cancel(void* handle, void* cancel_record) {
    a_call* call = handle;
    call->cancel_record = cancel_record;
}

/* Calls a procedure; the result has no data where it is NULL, or where there is no such procedure.
 */
static an_argument call(void* library, const char* name, const an_argument* arguments,
                        uint32_t count) {
    an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
    a_call made = {.arguments = arguments, .count = count};
    an_extfn_proc* procedure = NULL;
    *(void**)&procedure = dlsym(library, name);
    if (procedure == NULL) return made.result;
    procedure(&api, &made);
    free(made.cancel_record);
    return made.result;
}

/* The same for one whose result is a status. */
static int32_t status_of(void* library, const char* name, const an_argument* arguments,
                         uint32_t count) {
    const an_argument result = call(library, name, arguments, count);
    int32_t status = -1;
    if (result.data != NULL && result.length == sizeof status)
        memcpy(&status, result.data, sizeof status);
    free((void*)result.data);
    if (status != 0) fprintf(stderr, "%s: status %d, see quorel(7)\n", name, (int)status);
    return status;
}

/* The contents with CRLF for each line end, whatever it was; to be freed. */
static an_argument with_crlf(an_argument contents) {
    const char* from = contents.data;
    char* to = calloc(contents.length, 2);
    an_argument made = {EXTFN_TYPE_CHAR, to, 0};
    for (size_t i = 0; to != NULL && i < contents.length; ++i) {
        if (from[i] == '\n' && i > 0 && from[i - 1] == '\r') continue;
        const bool ends = from[i] == '\r' || from[i] == '\n';
        if (ends) to[made.length++] = '\r';
        to[made.length++] = ends ? '\n' : from[i];
    }
    return made;
}

/* 0 for what is no port. */
static int32_t port_of(const char* words) {
    char* end = NULL;
    const long port = strtol(words, &end, 10);
    return *end == '\0' && port >= 1 && port <= 65535 ? (int32_t)port : 0;
}

/* Parameter N is at N - 1; those left out are NULL. */
static bool send_mail(void* library, char** words, an_argument message) {
    const int32_t port = port_of(words[1]);
    const int32_t connection = 1;
    const an_argument start[12] = {
        [0] = text(words[2]), /* sender */
        [1] = text(words[0]), /* host */
        [2] = number(&port),
        [11] = number(&connection),
    };
    const an_argument mail[20] = {
        [0] = text(words[3]), /* recipient */
        [1] = text("From a host on a page"),
        [5] = message,
        [19] = number(&connection),
    };
    const an_argument stop[] = {number(&connection)};
    if (port == 0) fprintf(stderr, "host: %s is no port\n", words[1]);
    if (port == 0 || status_of(library, "xp_startsmtp", start, 12) != 0) return false;
    const int32_t sent = status_of(library, "xp_sendmail", mail, 20);
    return status_of(library, "xp_stopsmtp", stop, 1) == 0 && sent == 0;
}

static bool send_text(void* library, char** words, an_argument contents) {
    const an_argument message = with_crlf(contents);
    if (message.data == NULL) perror("host");
    const bool sent = message.data != NULL && send_mail(library, words, message);
    free((void*)message.data);
    return sent;
}

static bool print(an_argument contents) {
    const bool printed =
        fwrite(contents.data, 1, contents.length, stdout) == contents.length && fflush(stdout) == 0;
    if (!printed) perror("host");
    return printed;
}

int main(int argc, char** argv) {
    void* library = dlopen("libquorel_static.so", RTLD_NOW);
    an_extfn_use_new_api_fn* version = NULL;
    if (library != NULL) *(void**)&version = dlsym(library, "extfn_use_new_api");
    if (version == NULL || version() != EXTFN_API_VERSION || (argc != 2 && argc != 6)) {
        const char* why = dlerror();
        fprintf(stderr, "host: %s\n", why != NULL ? why : "FILE [SERVER PORT SENDER RECIPIENT]");
        return 2;
    }
    const an_argument name = {EXTFN_TYPE_STRING, argv[1], strlen(argv[1])};
    const an_argument contents = call(library, "xp_read_file", &name, 1);
    bool done = false;
    if (contents.data == NULL)
        fprintf(stderr, "host: %s is empty, or cannot be read\n", argv[1]);
    else if (argc == 6)
        done = send_text(library, argv + 2, contents);
    else
        done = print(contents);
    free((void*)contents.data);
    return done ? 0 : 1;
}
