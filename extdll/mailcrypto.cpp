#include "extdll/mailcrypto.h"

#include <cstdlib>
#include <memory>
#include <new>

#include <pthread.h>

#include "utils/unix/utptmutex.h"

namespace {

void* AllocCallback(void*, size_t size) {
    return std::malloc(size);
}

void* ReallocCallback(void*, void* memory, size_t size) {
    return std::realloc(memory, size);
}

void FreeCallback(void*, void* memory) {
    std::free(memory);
}

unsigned long ThreadIdCallback(void*) {
    return pthread_self();
}

void* MutexCreateCallback(void*) {
    std::unique_ptr<a_critical_sect> section(new (std::nothrow) a_critical_sect);
    if (section == nullptr) return nullptr;
    return ut_safe_pthread_mutex_init(section.get(), nullptr) == 0 ? section.release() : nullptr;
}

void MutexDestroyCallback(void*, void* mutex) {
    const std::unique_ptr<a_critical_sect> section(static_cast<a_critical_sect*>(mutex));
    ut_safe_pthread_mutex_destroy(section.get());
}

pthread_mutex_t* mutex_of(void* mutex) {
    return &static_cast<a_critical_sect*>(mutex)->p_mutex->mutex;
}

void MutexGetCallback(void*, void* mutex) {
    pthread_mutex_lock(mutex_of(mutex));
}

void MutexGiveCallback(void*, void* mutex) {
    pthread_mutex_unlock(mutex_of(mutex));
}

}  // namespace

const a_qxci_callbacks mail_crypto_callbacks = {
    .alloc_cb = AllocCallback,
    .realloc_cb = ReallocCallback,
    .free_cb = FreeCallback,
    .log_cb = nullptr,
    .threadid_cb = ThreadIdCallback,
    .mutex_create_cb = MutexCreateCallback,
    .mutex_destroy_cb = MutexDestroyCallback,
    .mutex_get_cb = MutexGetCallback,
    .mutex_give_cb = MutexGiveCallback,
    .create_thread_cb = nullptr,
};
