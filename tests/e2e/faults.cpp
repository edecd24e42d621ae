// Built without sanitizers, whose own start-up calls malloc.

#include "tests/e2e/faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <utility>

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <netdb.h>
#include <sys/mman.h>
#include <unistd.h>

// The sanitizer's. Looked up as the others are, they would call themselves: the look-up frees.
extern "C" {
void* __interceptor_malloc(size_t n);
void* __interceptor_calloc(size_t count, size_t n);
void* __interceptor_realloc(void* old, size_t n);
char* __interceptor_strdup(const char* text);
void __interceptor_free(void* block);
}

namespace {

using namespace faults;

constinit Report* report = nullptr;
constinit const char* library = nullptr;
constinit thread_local bool on = false;
std::mutex blocks_lock;
std::map<void*, Block> blocks;  // guarded by it: what one thread takes, another may give back

void trace(Trace& place) {
    void* calls[40];
    const int count = backtrace(calls, std::size(calls));
    std::fill(std::begin(place), std::end(place), 0);
    ptrdiff_t* known = place;
    for (int i = 0; i < count && known != std::end(place); ++i) {
        dl_find_object found;
        if (_dl_find_object(calls[i], &found) != 0) continue;
        if (strcmp(found.dlfo_link_map->l_name, library) != 0) continue;
        *known++ = static_cast<char*>(calls[i]) - static_cast<char*>(found.dlfo_map_start);
    }
}

// Whether it is this call that meets the fault, which can be of the kinds in `possible`.
bool meets(const char* call, unsigned possible) {
    if (!on || (possible >> report->kind & 1) == 0) return false;
    if (++report->counted != report->number) return false;
    report->call = call;
    trace(report->place);
    return true;
}

template <class Result>
Result fail(Result result, int why) {
    errno = report->kind == interrupted ? EINTR : report->kind == again ? EAGAIN : why;
    return result;
}

void* take(void* block) {
    if (!on || block == nullptr) return block;
    const std::lock_guard lock(blocks_lock);
    trace(blocks[block].place);
    return block;
}

void give_back(void* block) {
    if (report == nullptr) return;
    const std::lock_guard lock(blocks_lock);
    blocks.erase(block);
}

// What the dynamic linker does inside is its own.
struct Pause {
    ~Pause() { on = was_on; }
    const bool was_on = std::exchange(on, false);
};

// What can become of a call.
constexpr unsigned once = 1 << error;
constexpr unsigned retried = once | 1 << interrupted;
constexpr unsigned moved = retried | 1 << partial;
constexpr unsigned flows = moved | 1 << again;

// Any call of C on x86 as to its arguments, of which there may be fewer, and its result, which may
// be shorter.
using Word = intptr_t;
using Call = int64_t(Word, Word, Word, Word, Word, Word, Word);

}  // namespace

void faults::plan(Report* plan, const char* library_path) {
    report = plan;
    library = library_path;
}

void faults::counting(bool now) {
    on = now;
}

const std::map<void*, Block>& faults::taken() {
    return blocks;
}

#define HOOK extern "C" __attribute__((visibility("default")))

#define ALLOCATES(type, name, parameters, arguments, old)               \
    HOOK type name parameters {                                         \
        if (meets(#name, once)) return fail<type>(nullptr, ENOMEM);     \
        give_back(old);                                                 \
        return static_cast<type>(take(__interceptor_##name arguments)); \
    }

ALLOCATES(void*, malloc, (size_t n), (n), nullptr)
ALLOCATES(void*, calloc, (size_t count, size_t n), (count, n), nullptr)
ALLOCATES(void*, realloc, (void* block, size_t n), (block, n), block)
ALLOCATES(char*, strdup, (const char* text), (text), nullptr)

HOOK void free(void* block) {
    give_back(block);
    __interceptor_free(block);
}

// `failed` happens in place of the call, or of its repetition as real(…), and gives its result.
#define CALL(name, possible, failed, why)                                                        \
    HOOK int64_t hook_##name(Word a, Word b, Word c, Word d, Word e, Word f, Word g) asm(#name); \
    int64_t hook_##name(Word a, Word b, Word c, Word d, Word e, Word f, Word g) {                \
        static Call* real = nullptr;                                                             \
        if (real == nullptr) real = reinterpret_cast<Call*>(dlsym(RTLD_NEXT, #name));            \
        if (!meets(#name, possible)) return real(a, b, c, d, e, f, g);                           \
        if (report->kind == partial) return real(a, b, c > 0, d, e, f, g);                       \
        return fail<int64_t>(failed, why);                                                       \
    }

CALL(read, moved, -1, EIO)
CALL(write, moved, -1, ENOSPC)
CALL(recv, flows, -1, ECONNRESET)
CALL(send, flows, -1, EPIPE)

CALL(open64, retried, -1, EMFILE)
CALL(close, retried, (report->kind == error && real(a, b, c, d, e, f, g), -1), EIO)
CALL(access, retried, -1, EACCES)
CALL(lseek64, once, -1, EIO)
CALL(ftruncate64, retried, -1, EIO)
CALL(mmap64, once, Word(MAP_FAILED), ENOMEM)
CALL(__fcntl_time64, retried, -1, EINVAL)
CALL(__fstat64_time64, retried, -1, EIO)
CALL(__stat64_time64, retried, -1, EIO)

CALL(socket, once, -1, EMFILE)
// An interrupted attempt goes on.
CALL(connect, retried, (report->kind == interrupted && real(a, b, c, d, e, f, g), -1), ECONNREFUSED)
CALL(poll, retried, -1, ENOMEM)
CALL(shutdown, once, -1, ENOTCONN)
CALL(getpeername, once, -1, ENOTCONN)
CALL(getaddrinfo, once, EAI_AGAIN, EAGAIN)
CALL(gethostname, once, -1, EFAULT)
CALL(__ioctl_time64, retried, -1, ENOTTY)
CALL(__setsockopt64, once, -1, ENOBUFS)

CALL(times, once, -1, EFAULT)
CALL(__localtime64_r, once, 0, EOVERFLOW)
CALL(newlocale, once, 0, ENOMEM)
CALL(pthread_mutex_init, once, ENOMEM, ENOMEM)
CALL(waitpid, retried, -1, ECHILD)

HOOK void* dlopen(const char* file, int mode) {
    static auto* const real = reinterpret_cast<decltype(&dlopen)>(dlsym(RTLD_NEXT, "dlopen"));
    const bool fails = meets("dlopen", once);
    const Pause pause;
    return fails ? nullptr : real(file, mode);
}

HOOK int dlclose(void* loaded) {
    static auto* const real = reinterpret_cast<decltype(&dlclose)>(dlsym(RTLD_NEXT, "dlclose"));
    const Pause pause;
    return real(loaded);
}

// Parent or child goes on counting.
HOOK pid_t fork() {
    static auto* const real = reinterpret_cast<decltype(&fork)>(dlsym(RTLD_NEXT, "fork"));
    if (meets("fork", once)) return fail(-1, EAGAIN);
    const pid_t child = real();
    if (child != -1) on = on && report->in_child == (child == 0);
    return child;
}

HOOK int execl(const char* path, const char* name, ...) {
    if (meets("execl", once)) return fail(-1, ENOMEM);
    return execv(path, const_cast<char**>(&name));  // arguments are words, one behind the other
}
