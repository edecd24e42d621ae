#include "host/postgres/functions.h"

#include "catalog/pg_type.h"
#include "mb/pg_wchar.h"
#include "pgstat.h"
#include "storage/fd.h"
#include "storage/ipc.h"
#include "utils/array.h"
#include "utils/builtins.h"
#include "utils/memutils.h"

#include "host/postgres/callers.h"
#include "host/postgres/interrupts.h"
#include "host/postgres/received.h"
#include "host/postgres/settings.h"

/* What files are read in. */
#define LONG_PIECE 32768

/* One call on its way. */
typedef struct Call {
    int procedure;
    FunctionCallInfo fcinfo;
    QuorelServer server;
    Received bytes; /* of the result, in the caller's memory */
    QuorelCall* bridge;
} Call;

static void leave(int code, Datum unused) {
    quorel_leave();
}

/* Once in a backend. */
static void prepare_backend(void) {
    /* The worker's socket, its process, the memory that it shares, and what wakes us. */
    const int descriptors = 4;
    static bool prepared = false;
    int i;

    if (prepared) return;
    before_shmem_exit(leave, (Datum)0);
    for (i = 0; i < descriptors; ++i) ReserveExternalFD();
    prepared = true;
}

static void end_bridge(void* bridge) {
    quorel_end(bridge);
}

/* Ends with the current context, whatever happens. */
static QuorelCall* begin_bridge(Call* call) {
    MemoryContextCallback* callback = palloc0(sizeof(MemoryContextCallback));
    const QuorelSettings* settings = quorel_current_settings();

    callback->func = end_bridge;
    callback->arg = quorel_begin(call->procedure, settings, &call->server);
    if (callback->arg == NULL)
        ereport(ERROR, (errcode(ERRCODE_OUT_OF_MEMORY), errmsg("out of memory"),
                        errdetail("A call of %s needs memory for its records.",
                                  quorel_procedure_name(call->procedure))));
    MemoryContextRegisterResetCallback(CurrentMemoryContext, callback);
    return callback->arg;
}

static void give_varlena(const Call* call, int argument, Datum value) {
    const struct varlena* bytes = PG_DETOAST_DATUM_PACKED(value);

    quorel_give(call->bridge, argument, VARDATA_ANY(bytes), VARSIZE_ANY_EXHDR(bytes));
}

static void give_texts(const Call* call, int argument) {
    const FunctionCallInfo fcinfo = call->fcinfo;
    ArrayType* array = PG_GETARG_ARRAYTYPE_P(argument);
    Datum* values;
    bool* nulls;
    int count;
    int i;

    deconstruct_array(array, TEXTOID, -1, false, TYPALIGN_INT, &values, &nulls, &count);
    for (i = 0; i < count; ++i)
        if (nulls[i])
            quorel_give(call->bridge, argument, NULL, 0);
        else
            give_varlena(call, argument, values[i]);
}

static void give_arguments(const Call* call) {
    const FunctionCallInfo fcinfo = call->fcinfo;
    int i;

    for (i = 0; i < PG_NARGS(); ++i) {
        const QuorelType type = quorel_argument_type(call->procedure, i);

        if (type == QUOREL_TEXTS) {
            if (!PG_ARGISNULL(i)) give_texts(call, i);
        } else if (PG_ARGISNULL(i)) {
            quorel_give(call->bridge, i, NULL, 0);
        } else if (type == QUOREL_NUMBER) {
            quorel_give_number(call->bridge, i, PG_GETARG_INT32(i));
        } else {
            give_varlena(call, i, PG_GETARG_DATUM(i));
        }
    }
}

static bool take(void* sink, const void* bytes, size_t length, bool append) {
    Call* call = sink;

    if (quorel_is_interrupted()) return false;
    /* A short piece is the last one of a file. */
    if (!append && length >= LONG_PIECE)
        call->bytes.expected = (Size)Min(quorel_expected_size(call->bridge), SIZE_MAX);
    return quorel_receive(&call->bytes, bytes, length, append);
}

static int code_of(QuorelOutcome outcome) {
    switch (outcome) {
    case QUOREL_BAD_ARGUMENT:
        return ERRCODE_INVALID_PARAMETER_VALUE;
    case QUOREL_FORBIDDEN:
        return ERRCODE_INSUFFICIENT_PRIVILEGE;
    case QUOREL_UNAVAILABLE:
        return ERRCODE_SYSTEM_ERROR;
    case QUOREL_TOO_LONG:
        return ERRCODE_QUERY_CANCELED;
    case QUOREL_DOUBTFUL:
        return ERRCODE_IO_ERROR;
    default:
        return ERRCODE_EXTERNAL_ROUTINE_EXCEPTION;
    }
}

static void raise_outcome(const Call* call, QuorelOutcome outcome) {
    const char* hint = quorel_hint(call->bridge);

    if (call->bytes.end == RECEIVED_TOO_LONG)
        ereport(ERROR, (errcode(ERRCODE_PROGRAM_LIMIT_EXCEEDED),
                        errmsg("%s: the value is longer than 1 GB",
                               quorel_procedure_name(call->procedure)),
                        errhint("Read the file in parts, with pg_read_binary_file.")));
    if (call->bytes.end == RECEIVED_NO_MEMORY)
        ereport(ERROR, (errcode(ERRCODE_OUT_OF_MEMORY), errmsg("out of memory")));
    if (outcome == QUOREL_DONE) return;
    ereport(ERROR, (errcode(code_of(outcome)), errmsg_internal("%s", quorel_message(call->bridge)),
                    hint != NULL ? errhint("%s", hint) : 0));
}

/* The backend waits in here, and nothing in here may raise an error. */
static void run(const Call* call) {
    QuorelOutcome outcome;
    const char* warning;

    pgstat_report_wait_start(PG_WAIT_EXTENSION);
    outcome = quorel_run(call->bridge);
    pgstat_report_wait_end();
    quorel_stop_if_due();
    raise_outcome(call, outcome);
    warning = quorel_warning(call->bridge);
    if (warning != NULL)
        ereport(WARNING, (errmsg("%s: %s", quorel_procedure_name(call->procedure), warning)));
}

/* The procedures count bytes, and may end a text in the middle of a character, which is left out.
 */
static Datum checked_text(int procedure, const char* bytes, size_t length) {
    const int encoding = GetDatabaseEncoding();
    const int whole = pg_encoding_mbcliplen(encoding, bytes, (int)length, (int)length);

    if (!pg_verify_mbstr(encoding, bytes, whole, true))
        ereport(ERROR, (errcode(ERRCODE_CHARACTER_NOT_IN_REPERTOIRE),
                        errmsg("%s gives text that is none in the encoding \"%s\"",
                               quorel_procedure_name(procedure), pg_encoding_to_char(encoding)),
                        errhint("Its formats count bytes; let no width end within a character.")));
    return PointerGetDatum(cstring_to_text_with_len(bytes, whole));
}

static Datum texts_result(const Call* call, int count) {
    Datum* values = palloc(sizeof(Datum) * (Size)Max(count, 1));
    size_t length = 0;
    int i;

    for (i = 0; i < count; ++i) {
        const char* bytes = quorel_text_at(call->bridge, i, &length);

        values[i] = checked_text(call->procedure, bytes, length);
    }
    return PointerGetDatum(construct_array(values, count, TEXTOID, -1, false, TYPALIGN_INT));
}

static Datum result_of(Call* call) {
    const FunctionCallInfo fcinfo = call->fcinfo;
    const char* text;
    size_t length = 0;
    int32 number = 0;
    int count;

    switch (quorel_result_type(call->procedure)) {
    case QUOREL_NUMBER:
        if (!quorel_number(call->bridge, &number)) PG_RETURN_NULL();
        PG_RETURN_INT32(number);
    case QUOREL_BYTES:
        if (!quorel_has_bytes(call->bridge)) PG_RETURN_NULL();
        PG_RETURN_BYTEA_P(quorel_received(&call->bytes));
    case QUOREL_TEXT:
        text = quorel_text(call->bridge, &length);
        if (text == NULL) PG_RETURN_NULL();
        PG_RETURN_DATUM(checked_text(call->procedure, text, length));
    case QUOREL_TEXTS:
        count = quorel_text_count(call->bridge);
        if (count < 0) PG_RETURN_NULL();
        PG_RETURN_DATUM(texts_result(call, count));
    default:
        PG_RETURN_VOID();
    }
}

/* What a call needs lives in a context of its own, and ends with it when an error is raised too. */
Datum quorel_call(FunctionCallInfo fcinfo, int procedure) {
    const MemoryContext caller = CurrentMemoryContext;
    MemoryContext context;
    Call call = {
        procedure, fcinfo, {quorel_attend, quorel_should_stop, take, &call}, {caller}, NULL};
    Datum result;

    quorel_refuse_strange_callers(fcinfo, quorel_procedure_name(procedure));
    prepare_backend();
    context = AllocSetContextCreate(caller, "quorel call", ALLOCSET_SMALL_SIZES);
    MemoryContextSwitchTo(context);
    call.bridge = begin_bridge(&call);
    give_arguments(&call);
    run(&call);
    MemoryContextSwitchTo(caller);
    result = result_of(&call);
    MemoryContextDelete(context);
    return result;
}

PG_FUNCTION_INFO_V1(quorel_xp_status);
Datum quorel_xp_status(PG_FUNCTION_ARGS) {
    const char* name = text_to_cstring(PG_GETARG_TEXT_PP(0));
    const char* words = quorel_status_words(name, PG_GETARG_INT32(1));

    if (words == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_FUNCTION), errmsg("there is no procedure %s", name)));
    PG_RETURN_TEXT_P(cstring_to_text(words));
}
