#include "utils/unix/utlasting.h"

#include <atomic>

#include "utils/etc/uttypes.h"

namespace {

constexpr uint32 ended = 0x80000000U;
std::atomic<uint32> uses = 0;  // alive, and `ended`

UTLastingObject* newest = nullptr;  // changed while loading and ending only, on one thread

// Run by the dynamic linker: when the library is unloaded, and at exit after all handlers that
// atexit() knows.
__attribute__((destructor)) void end_with_library() {
    ut_end_lasting();
}

}  // namespace

UTLastingObject::UTLastingObject(void (*destroy)(UTLastingObject* object))
    : _destroy(destroy), _older(newest) {
    newest = this;
}

UTLastingUse::UTLastingUse()
    : _granted((uses.fetch_add(1, std::memory_order_acquire) & ended) == 0) {}

UTLastingUse::~UTLastingUse() {
    uses.fetch_sub(1, std::memory_order_release);
}

void ut_end_lasting() {
    uint32 none = 0;
    if (!uses.compare_exchange_strong(none, ended, std::memory_order_acq_rel)) return;
    for (; newest != nullptr; newest = newest->_older) newest->_destroy(newest);
}
