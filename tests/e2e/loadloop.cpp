// Loads and unloads the library many times and reports what that left behind:
//     loadloop LIBRARY ROUNDS
// prints the growth between the first rounds and the last, in mapped regions, open descriptors and
// bytes of heap. Each round calls procedures that allocate.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include "extdll/extfn.h"

namespace {

long lines_of(const char* path) {
    std::ifstream in(path);
    long count = 0;
    for (std::string line; std::getline(in, line);) ++count;
    return count;
}

long entries_of(const char* folder) {
    long count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        count += entry.path().empty() ? 0 : 1;
    }
    return count;
}

struct Usage {
    long regions = lines_of("/proc/self/maps");
    long descriptors = entries_of("/proc/self/fd");
    long heap = static_cast<long>(mallinfo2().uordblks);
};

// A host whose only argument is this program's own file.
int16_t get_value(void*, uint32_t number, an_extfn_value* value) {
    static char name[] = "/proc/self/exe";
    *value = {number == 1 ? name : nullptr, sizeof name - 1, {sizeof name - 1}, EXTFN_TYPE_STRING};
    return number == 1;
}
int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) {
    return 0;
}
int16_t set_value(void*, uint32_t, an_extfn_value*, int16_t) {
    return 1;
}
void set_cancel(void*, void* record) {
    free(record);
}

void load_call_unload(const char* path) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
    an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
    // The start of a session fails for want of a host, after the network has been set up for it.
    for (const char* name : {"xp_read_file", "xp_startsmtp"})
        reinterpret_cast<an_extfn_proc*>(dlsym(library, name))(&api, nullptr);
    dlclose(library);
    if (dlopen(path, RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        std::fprintf(stderr, "%s stays loaded\n", path);
        std::exit(1);
    }
}

// The C library counts blocks that it keeps for reuse on this thread as in use: how many those are
// depends on the lengths of paths and on luck. Without that cache the count is exact. It can only
// be turned off before the program starts.
void start_without_cached_blocks(char** arguments) {
    const char* const wanted = "glibc.malloc.tcache_count=0";
    const char* const set = std::getenv("GLIBC_TUNABLES");
    if (set != nullptr && std::strcmp(set, wanted) == 0) return;
    setenv("GLIBC_TUNABLES", wanted, 1);
    execv("/proc/self/exe", arguments);
    std::perror("execv");
    std::exit(1);
}

}  // namespace

int main(int, char** arguments) {
    start_without_cached_blocks(arguments);
    const char* const path = arguments[1];
    const int rounds = std::atoi(arguments[2]);
    for (int i = 0; i < 10; ++i) load_call_unload(path);
    const Usage before;
    for (int i = 0; i < rounds; ++i) load_call_unload(path);
    const Usage after;
    std::printf("regions %ld descriptors %ld heap %ld\n", after.regions - before.regions,
                after.descriptors - before.descriptors, after.heap - before.heap);
    return 0;
}
