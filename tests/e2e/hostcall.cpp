// hostcall LIBRARY: calls procedures of a library as a server would, one call for each line of
// standard input, and prints the status of each call on a line of its own ("-" when none is set). A
// line is the procedure's name and, for each argument that is not NULL, its number, its type code
// and its bytes, at least one, in hexadecimal digits, separated by blanks. At the end the library
// is unloaded; a thread or descriptor that it leaves behind is a failure. Other lines:
//
//   memory     prints the size of the process's address space in KiB.
//   threads N  The calls of all lines that follow are made over and over by N threads, each
//              beginning elsewhere, and soon the program exits while they do. An exit handler,
//              older than the library, then stops the default session and prints the status as for
//              any other call.
//   reload N   The library is unloaded and loaded N times, with the calls of all lines that follow
//              in between. Prints what that left behind of mapped regions, descriptors and bytes of
//              heap, beyond what the first rounds did.

#include <algorithm>
#include <atomic>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include "tests/extdll/fakehost.h"
#include "tests/scratch.h"

// Kept by design: a session that was started leaves its record behind. See SendmailManager.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:SendmailManager::FindOrAddState\n";
}

namespace {

const char* library_path = nullptr;
void* library = nullptr;

[[noreturn]] void fail(const char* why) {
    std::cerr << why << '\n';
    _exit(1);
}

void load() {
    library = dlopen(library_path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) fail(dlerror());
}

void unload() {
    dlclose(library);
    library = nullptr;
    if (dlopen(library_path, RTLD_NOW | RTLD_NOLOAD) != nullptr) fail("the library stays loaded");
}

std::string from_hex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string status_of(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    auto* const procedure = reinterpret_cast<an_extfn_proc*>(dlsym(library, word.c_str()));
    if (procedure == nullptr) fail("there is no such procedure");
    constexpr uint32 most_arguments = 20;
    FakeHost host;
    for (uint32 number = 1; number <= most_arguments; ++number) host.give(number, std::nullopt);
    uint32 number = 0;
    for (a_sql_data_type type = 0; words >> number >> type >> word;)
        host.give(number, from_hex(word), type);
    const int32 status = host.status_of(procedure);
    return status != -1 ? std::to_string(status) : "-";
}

void stop_at_exit() {
    if (library != nullptr) std::cout << status_of("xp_stopsmtp") << std::endl;
}

void exit_beside_threads(std::vector<std::string> lines_for_now, size_t count) {
    // Never destroyed, as the threads go on with it.
    const auto& lines = *new std::vector(std::move(lines_for_now));
    static std::atomic<size_t> made = 0;
    for (size_t thread = 0; thread < count; ++thread) {
        std::thread([&lines, at = thread * lines.size() / count]() mutable {
            for (;; ++made) status_of(lines[at++ % lines.size()]);
        }).detach();
    }
    while (made < 4 * lines.size()) usleep(1000);
    std::exit(0);
}

long lines_of(const char* path) {
    std::ifstream in(path);
    return static_cast<long>(std::count(std::istreambuf_iterator<char>(in), {}, '\n'));
}

struct Usage {
    long regions = lines_of("/proc/self/maps");
    long descriptors = entries("/proc/self/fd");
    long heap = static_cast<long>(mallinfo2().uordblks);
};

void reload(const std::vector<std::string>& lines, int rounds) {
    const auto repeat = [&lines](int times) {
        for (; times > 0; --times) {
            unload();
            load();
            for (const std::string& line : lines) status_of(line);
        }
    };
    repeat(10);
    const Usage before;
    repeat(rounds);
    const Usage after;
    std::cout << "regions " << after.regions - before.regions << " descriptors "
              << after.descriptors - before.descriptors << " heap " << after.heap - before.heap
              << std::endl;
}

size_t kilobytes_of_address_space() {
    std::ifstream status("/proc/self/statm");
    size_t pages = 0;
    status >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::vector<std::string> lines_to_come() {
    std::vector<std::string> lines;
    for (std::string line; std::getline(std::cin, line);) lines.push_back(line);
    return lines;
}

}  // namespace

int main(int, char** arguments) {
    std::atexit(stop_at_exit);
    const long threads = entries("/proc/self/task");
    const long descriptors = entries("/proc/self/fd");
    library_path = arguments[1];
    load();
    for (std::string line; std::getline(std::cin, line);) {
        if (line.starts_with("threads ")) {
            exit_beside_threads(lines_to_come(), std::stoul(line.substr(8)));
        } else if (line.starts_with("reload ")) {
            reload(lines_to_come(), std::stoi(line.substr(7)));
        } else if (line == "memory") {
            std::cout << kilobytes_of_address_space() << std::endl;
        } else {
            std::cout << status_of(line) << std::endl;
        }
    }
    unload();
    if (entries("/proc/self/task") != threads) fail("a thread is left behind");
    if (entries("/proc/self/fd") != descriptors) fail("a descriptor is left behind");
    return 0;
}
