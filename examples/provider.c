/* The smallest provider: a hash that adds bytes up, which protects nothing.
 *
 * Everything here is asked of every provider (kovcert/qxci/qxci.h): memory comes from the owner and
 * goes back to it, an object keeps the reason of its last failure, and no state is shared. In C++
 * the kit (kovcert/qxci/kit/providerkit.h) takes most of it over.
 */

#include <string.h>

#include "kovcert/qxci/qxci.h"

enum { SUM_ID = 254 };

typedef struct an_environment {
    const a_qxci_callbacks* callbacks;
    void* context;
} an_environment;

typedef struct a_sum {
    an_environment* environment;
    a_qxci_error last_error;
    bool begun;
    a_qxci_byte sum;
} a_sum;

static void* take(const an_environment* environment, size_t size) {
    void* memory = environment->callbacks->alloc_cb(environment->context, size);
    return memory == NULL ? NULL : memset(memory, 0, size);
}

static void give_back(const an_environment* environment, void* memory) {
    environment->callbacks->free_cb(environment->context, memory);
}

/* ---- Errors --------------------------------------------------------------------------------- */

static void destroy_parameters(const an_environment* environment, a_qxci_error* error) {
    if (error->parm_list == NULL) return;
    for (char** parameter = error->parm_list; *parameter != NULL; ++parameter)
        give_back(environment, *parameter);
    give_back(environment, error->parm_list);
}

static void error_destroy(QXCIEnvironmentH env, a_qxci_error* error) {
    destroy_parameters((an_environment*)env, error);
}

static void begin_operation(a_sum* sum) {
    destroy_parameters(sum->environment, &sum->last_error);
    sum->last_error = (a_qxci_error){0};
}

static a_qxci_result fail(a_sum* sum, a_dbqxci_error code, const char* parameter) {
    sum->last_error.code = code;
    if (parameter == NULL) return QXCI_ERROR;
    char** list = take(sum->environment, 2 * sizeof *list);
    if (list == NULL) return QXCI_ERROR;
    const size_t size = strlen(parameter) + 1;
    list[0] = take(sum->environment, size);
    if (list[0] != NULL) memcpy(list[0], parameter, size);
    sum->last_error.parm_list = list;
    return QXCI_ERROR;
}

/* ---- The environment ------------------------------------------------------------------------ */

static QXCIEnvironmentH env_create(const a_qxci_callbacks* callbacks, void* context,
                                   a_qxci_user_option* options, const char* component,
                                   a_qxci_error* error) {
    (void)options, (void)component;
    const an_environment made = {callbacks, context};
    an_environment* environment = take(&made, sizeof made);
    if (environment == NULL)
        error->code = QxciErrNoMemory;
    else
        *environment = made;
    return (QXCIEnvironmentH)environment;
}

static void env_destroy(QXCIEnvironmentH env) {
    if (env == NULL) return;
    const an_environment environment = *(an_environment*)env;
    give_back(&environment, env);
}

static bool has_id(QXCIEnvironmentH env, a_qxci_byte id) {
    (void)env;
    return id == SUM_ID;
}

/* Without a locale: in a Turkish one an "I" is no "i". */
static char to_lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? (char)(letter - 'A' + 'a') : letter;
}

static bool has_name(QXCIEnvironmentH env, const char* name) {
    (void)env;
    if (name == NULL) return false;
    const char* letter = "sum";
    while (*letter != '\0' && to_lower(*name) == *letter) ++letter, ++name;
    return *letter == '\0' && *name == '\0';
}

/* ---- The hash ------------------------------------------------------------------------------- */

static QXCIBlockHasherH create_if(QXCIEnvironmentH env, bool known, a_qxci_error* error) {
    an_environment* environment = (an_environment*)env;
    a_sum* sum = known ? take(environment, sizeof *sum) : NULL;
    if (sum == NULL)
        error->code = known ? QxciErrNoMemory : QxciErrBadHashAlgorithm;
    else
        sum->environment = environment;
    return (QXCIBlockHasherH)sum;
}

static QXCIBlockHasherH sum_create(QXCIEnvironmentH env, const char* name, a_qxci_error* error) {
    return create_if(env, has_name(env, name), error);
}

static QXCIBlockHasherH sum_create_with_id(QXCIEnvironmentH env, a_qxci_byte id,
                                           a_qxci_error* error) {
    return create_if(env, has_id(env, id), error);
}

static void sum_destroy(QXCIBlockHasherH hasher) {
    a_sum* sum = (a_sum*)hasher;
    if (sum == NULL) return;
    begin_operation(sum);
    give_back(sum->environment, sum);
}

static a_qxci_byte sum_id(QXCIBlockHasherH hasher) {
    (void)hasher;
    return SUM_ID;
}

static size_t sum_size(QXCIBlockHasherH hasher) {
    (void)hasher;
    return 1;
}

static a_qxci_result sum_begin(QXCIBlockHasherH hasher) {
    a_sum* sum = (a_sum*)hasher;
    begin_operation(sum);
    sum->begun = true;
    sum->sum = 0;
    return QXCI_OK;
}

static a_qxci_result sum_add(QXCIBlockHasherH hasher, const a_qxci_byte* data, size_t len) {
    a_sum* sum = (a_sum*)hasher;
    begin_operation(sum);
    if (!sum->begun) return fail(sum, QxciErrInitError, NULL);
    while (len-- > 0) sum->sum = (a_qxci_byte)(sum->sum + *data++);
    return QXCI_OK;
}

static a_qxci_result sum_end(QXCIBlockHasherH hasher, a_qxci_byte* out, size_t* out_len) {
    a_sum* sum = (a_sum*)hasher;
    begin_operation(sum);
    if (!sum->begun) return fail(sum, QxciErrInitError, NULL);
    const bool fits = *out_len >= 1;
    *out_len = 1;
    if (!fits) return fail(sum, QxciErrOptionError, "out_len");
    *out = sum->sum;
    sum->begun = false;
    return QXCI_OK;
}

static const a_qxci_error* sum_last_error(QXCIBlockHasherH hasher) {
    return &((a_sum*)hasher)->last_error;
}

/* ---- The entry points ----------------------------------------------------------------------- */

a_qxci_version QXCIGetVersion(void) {
    return (a_qxci_version){QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    *iface = (a_qxci_env_iface){.create_func = env_create,
                                .destroy_func = env_destroy,
                                .block_hash_alg_func = has_name,
                                .block_hash_alg_id_func = has_id};
    return QXCI_OK;
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    *iface = (a_qxci_error_iface){.destroy_func = error_destroy};
    return QXCI_OK;
}

a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface) {
    *iface = (a_qxci_hash_iface){.create_func = sum_create,
                                 .create_with_id_func = sum_create_with_id,
                                 .get_algorithm_id_func = sum_id,
                                 .get_max_hash_size_func = sum_size,
                                 .get_block_size_func = sum_size,
                                 .begin_hash_func = sum_begin,
                                 .add_data_func = sum_add,
                                 .end_hash_func = sum_end,
                                 .get_last_error_func = sum_last_error,
                                 .destroy_func = sum_destroy};
    return QXCI_OK;
}
