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
    std::unique_ptr<UTCriticalSection> section(new (std::nothrow) UTCriticalSection);
    return section != nullptr && section->exists() ? section.release() : nullptr;
}

void MutexDestroyCallback(void*, void* mutex) {
    delete static_cast<UTCriticalSection*>(mutex);
}

void MutexGetCallback(void*, void* mutex) {
    static_cast<UTCriticalSection*>(mutex)->mutex()->lock();
}

void MutexGiveCallback(void*, void* mutex) {
    static_cast<UTCriticalSection*>(mutex)->mutex()->unlock();
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
