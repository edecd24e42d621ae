/* Tries a provider: hashes standard input with one of its algorithms, as an owner does.
 *
 *     owner PROVIDER ALGORITHM
 */

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "kovcert/qxci/qxci.h"

static void* alloc_memory(void* context, size_t size) {
    (void)context;
    return malloc(size);
}

static void* realloc_memory(void* context, void* memory, size_t size) {
    (void)context;
    return realloc(memory, size);
}

static void free_memory(void* context, void* memory) {
    (void)context;
    free(memory);
}

static const a_qxci_callbacks callbacks = {
    .alloc_cb = alloc_memory, .realloc_cb = realloc_memory, .free_cb = free_memory};

/* The tables that hashing needs. */
typedef struct a_provider {
    a_qxci_env_iface env;
    a_qxci_error_iface error;
    a_qxci_hash_iface hash;
} a_provider;

static bool load(const char* path, a_provider* provider) {
    void* file = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (file == NULL) return false;
    a_qxci_version (*version)(void) = NULL;
    a_qxci_result (*get_env)(a_qxci_env_iface*) = NULL;
    a_qxci_result (*get_error)(a_qxci_error_iface*) = NULL;
    a_qxci_result (*get_hash)(a_qxci_hash_iface*) = NULL;
    *(void**)&version = dlsym(file, "QXCIGetVersion");
    *(void**)&get_env = dlsym(file, "QXCIGetEnvIface");
    *(void**)&get_error = dlsym(file, "QXCIGetErrorIface");
    *(void**)&get_hash = dlsym(file, "QXCIGetBlockHasherIface");
    if (version == NULL || get_env == NULL || get_error == NULL || get_hash == NULL) return false;
    const a_qxci_version is = version();
    return is.api_major == QXCI_API_MAJOR && is.api_minor == QXCI_API_MINOR &&
           is.impl_id == QXCI_IMPL_ID && get_env(&provider->env) == QXCI_OK &&
           get_error(&provider->error) == QXCI_OK && get_hash(&provider->hash) == QXCI_OK;
}

/* False with the hasher's last error, or without one where input or output failed. */
static bool hash_input(const a_provider* provider, QXCIBlockHasherH hasher) {
    a_qxci_byte bytes[4096];
    if (provider->hash.begin_hash_func(hasher) != QXCI_OK) return false;
    for (size_t count; (count = fread(bytes, 1, sizeof bytes, stdin)) > 0;)
        if (provider->hash.add_data_func(hasher, bytes, count) != QXCI_OK) return false;
    if (ferror(stdin)) return false;
    size_t length = sizeof bytes;
    if (provider->hash.end_hash_func(hasher, bytes, &length) != QXCI_OK) return false;
    for (size_t i = 0; i < length; ++i) printf("%02x", bytes[i]);
    printf("\n");
    return fflush(stdout) == 0 && !ferror(stdout);
}

int main(int argc, char** argv) {
    a_provider provider = {0};
    if (argc != 3 || !load(argv[1], &provider)) {
        const char* why = dlerror();
        fprintf(stderr, "owner: %s\n",
                why != NULL ? why : "PROVIDER ALGORITHM, a provider of hashes");
        return 2;
    }
    a_qxci_error error = {0};
    QXCIEnvironmentH env = provider.env.create_func(&callbacks, NULL, NULL, "owner", &error);
    if (env == NULL) {
        fprintf(stderr, "owner: no environment, error %u\n", (unsigned)error.code);
        return 1;
    }
    QXCIBlockHasherH hasher = provider.hash.create_func(env, argv[2], &error);
    const bool hashed = hasher != NULL && hash_input(&provider, hasher);
    if (hasher != NULL && !hashed) error.code = provider.hash.get_last_error_func(hasher)->code;
    if (error.code != QxciErrOK)
        fprintf(stderr, "owner: %s: error %u\n", argv[2], (unsigned)error.code);
    else if (!hashed)
        perror("owner");
    if (hasher == NULL) provider.error.destroy_func(env, &error);
    provider.hash.destroy_func(hasher);
    provider.env.destroy_func(env);
    return hashed ? 0 : 1;
}
