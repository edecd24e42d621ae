/* A provider with nothing behind its entry points, which the environment variable BROKEN_PROVIDER
 * makes go wrong: it names the getter that fails, or the field of the version that is not right, or
 * what is wrong with the environment. An entry point is taken away by defining its name as another
 * one when this is compiled. */

#include <stdlib.h>
#include <string.h>

#include "kovcert/qxci/qxci.h"

static int is_broken(const char* part) {
    const char* broken = getenv("BROKEN_PROVIDER");
    return broken != NULL && strcmp(broken, part) == 0;
}

static uint16_t field(const char* name, uint16_t right) {
    return is_broken(name) ? (uint16_t)(right + 1) : right;
}

a_qxci_version QXCIGetVersion(void) {
    a_qxci_version version = {field("api_major", QXCI_API_MAJOR),
                              field("api_minor", QXCI_API_MINOR), field("impl_id", QXCI_IMPL_ID),
                              field("impl_ver", 0xfffe)};
    return version;
}

/* A function for every entry, so that a table can be seen to be filled. */
static void nothing(void) {}

static a_qxci_result fill(const char* getter, void* table, size_t size) {
    void (*const entry)(void) = nothing;
    for (size_t at = 0; at < size; at += sizeof entry) {
        memcpy((char*)table + at, &entry, sizeof entry);
    }
    return is_broken(getter) ? QXCI_ERROR : QXCI_OK;
}

#define GETTER(name, a_table)                     \
    a_qxci_result name(a_table* iface) {          \
        return fill(#name, iface, sizeof *iface); \
    }

GETTER(QXCIGetErrorIface, a_qxci_error_iface)
GETTER(QXCIGetStreamIface, a_qxci_stream_iface)
GETTER(QXCIGetStreamConnIface, a_qxci_conn_iface)
GETTER(QXCIGetPasswordHasherIface, a_qxci_pw_hash_iface)
GETTER(QXCIGetBlockHasherIface, a_qxci_hash_iface)
GETTER(QXCIGetBlockEncrypterIface, a_qxci_enc_iface)
GETTER(QXCIGetSignatureHandlerIface, a_qxci_sig_iface)

static char* parameter(const a_qxci_callbacks* callbacks, void* context, const char* text) {
    char* copy = callbacks->alloc_cb(context, strlen(text) + 1);
    return strcpy(copy, text);
}

static QXCIEnvironmentH create_env(const a_qxci_callbacks* callbacks, void* context,
                                   a_qxci_user_option* options, const char* component,
                                   a_qxci_error* error) {
    static int environment;
    (void)options, (void)component;
    if (!is_broken("environment") && !is_broken("reason")) return (QXCIEnvironmentH)&environment;
    if (is_broken("reason")) return NULL;
    error->code = QxciErrBadCompany;
    error->system_code = 7;
    error->parm_list = callbacks->alloc_cb(context, 3 * sizeof(char*));
    error->parm_list[0] = parameter(callbacks, context, "first");
    error->parm_list[1] = parameter(callbacks, context, "second");
    error->parm_list[2] = NULL;
    return NULL;
}

static void destroy_env(QXCIEnvironmentH env) {
    (void)env;
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    const a_qxci_result result = fill("QXCIGetEnvIface", iface, sizeof *iface);
    iface->create_func = is_broken("create_func") ? NULL : create_env;
    iface->destroy_func = destroy_env;
    return result;
}
