#include "utils/utmem/utmem.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr a_utmem_source system_source = {std::malloc, std::realloc, std::free, ut_out_of_memory};
std::atomic<const a_utmem_source*> current_source{&system_source};

std::atomic<bool> memory_aborted{false};

const a_utmem_source& source() {
    return *current_source.load(std::memory_order_acquire);
}

// Once: with a hook that always says yes, a request that cannot be met would go on for ever.
template <class Request>
void* with_one_retry(Request request) {
    void* block = request();
    if (block != nullptr || !source().out_of_memory()) return block;
    return request();
}

void* or_end_process(void* block) {
    if (block == nullptr) ut_fatal("Out of memory");
    return block;
}

char* terminated_copy(const char* text, size_t length) {
    auto* copy = static_cast<char*>(ut_alloc(length + 1));
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

// Nothing can be done about a failure here, and a short text leaves in one piece.
void write_line(int fd, const char* label, const char* message) {
    auto part = [](const char* text) { return iovec{const_cast<char*>(text), std::strlen(text)}; };
    const iovec line[] = {part(label), part(message), part("\n")};
    [[maybe_unused]] const ssize_t ignored = writev(fd, line, 3);
}

}  // namespace

void* ut_alloc(size_t size) {
    if (size == 0) return nullptr;
    return or_end_process(ut_malloc(size));
}

void* ut_malloc(size_t size) {
    if (size == 0) return nullptr;
    return with_one_retry([size] { return source().allocate(size); });
}

// Not calloc(), which would be one more thing for a source to have.
void* ut_calloc(size_t size) {
    void* block = ut_malloc(size);
    if (block != nullptr) std::memset(block, 0, size);
    return block;
}

void* ut_memdup(const void* block, size_t size) {
    if (block == nullptr) return nullptr;
    void* copy = ut_malloc(size);
    if (copy != nullptr) std::memcpy(copy, block, size);
    return copy;
}

void* ut_realloc(void* block, size_t size) {
    if (block == nullptr) return ut_malloc(size);
    if (size == 0) {
        ut_free(block);
        return nullptr;
    }
    return or_end_process(with_one_retry([=] { return source().resize(block, size); }));
}

void ut_free(void* block) {
    if (block != nullptr) source().release(block);
}

char* ut_strdup(const char* text) {
    if (text == nullptr) return nullptr;
    return terminated_copy(text, std::strlen(text));
}

void* uimalloc(size_t size) {
    return size == 0 ? nullptr : source().allocate(size);
}

void* uicalloc(size_t count, size_t size) {
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
    return ut_calloc(bytes);
}

void* uirealloc(void* block, size_t size) {
    return ut_realloc(block, size);
}

void uifree(void* block) {
    ut_free(block);
}

int ut_trackmem() {
    return 0;
}
void ut_start_trackmem() {}
void ut_stop_trackmem() {}

void utmem_abort() {
    memory_aborted.store(true, std::memory_order_relaxed);
}

bool utmem_is_aborted() {
    return memory_aborted.load(std::memory_order_relaxed);
}

bool ut_out_of_memory() {
    return false;
}

// Not exit(), whose handlers may want memory. No signal is let in any more, so that the lines are
// written in one call each and a standard output that nobody reads cannot turn the exit status into
// death by SIGPIPE.
void ut_fatal(const char* message) {
    if (message != nullptr) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        write_line(STDERR_FILENO, "Corvane: ", message);
        write_line(STDOUT_FILENO, "", message);
    }
    _exit(1);
}

char* UTHeap::Strndup(const char* text, size_t length) const {
    if (text == nullptr) return nullptr;
    return terminated_copy(text, strnlen(text, length));
}

void utmem_set_source(const a_utmem_source* new_source) {
    current_source.store(new_source != nullptr ? new_source : &system_source,
                         std::memory_order_release);
}
