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
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include "extdll/extfn.h"

// Kept by design: a session that was started leaves its record behind. See SendmailManager.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:SendmailManager::FindOrAddState\n";
}

namespace {

struct Argument {
    int type;
    std::string bytes;
};

struct Call {
    an_extfn_proc* procedure = nullptr;
    std::map<uint32_t, Argument> arguments;
    std::string status = "-";
};

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

int16_t get_value(void* handle, uint32_t number, an_extfn_value* value) {
    *value = {};
    Call& call = *static_cast<Call*>(handle);
    const auto found = call.arguments.find(number);
    if (found == call.arguments.end()) return 1;
    auto& [type, bytes] = found->second;
    const auto length = static_cast<uint32_t>(bytes.size());
    *value = {bytes.data(), length, {length}, static_cast<a_sql_data_type>(type)};
    return 1;
}

int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) {
    return 0;
}

int16_t set_value(void* handle, uint32_t, an_extfn_value* value, int16_t) {
    int32_t status = 0;
    if (value->type != EXTFN_TYPE_INT32) return 1;
    std::memcpy(&status, value->data, sizeof status);
    static_cast<Call*>(handle)->status = std::to_string(status);
    return 1;
}

void set_cancel(void*, void*) {}

std::string from_hex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

Call parsed(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    Call call;
    call.procedure = reinterpret_cast<an_extfn_proc*>(dlsym(library, word.c_str()));
    if (call.procedure == nullptr) fail("there is no such procedure");
    uint32_t number = 0;
    for (int type = 0; words >> number >> type >> word;)
        call.arguments[number] = {type, from_hex(word)};
    return call;
}

std::string status_of(Call call) {
    an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
    call.procedure(&api, &call);
    return call.status;
}

void stop_at_exit() {
    if (library != nullptr) std::cout << status_of(parsed("xp_stopsmtp")) << std::endl;
}

// What the threads use is never destroyed.
void exit_beside_threads(const std::vector<std::string>& lines, size_t count) {
    auto& calls = *new std::vector<Call>;
    auto& made = *new std::atomic<size_t>;
    for (const std::string& line : lines) calls.push_back(parsed(line));
    for (size_t thread = 0; thread < count; ++thread) {
        std::thread([&calls, &made, at = thread * calls.size() / count]() mutable {
            for (;; ++made) status_of(calls[at++ % calls.size()]);
        }).detach();
    }
    while (made < 4 * calls.size()) usleep(1000);
    std::exit(0);
}

// That of the descriptors counts the one it is read through.
long entries(const char* folder) {
    const std::filesystem::directory_iterator found(folder);
    return static_cast<long>(std::distance(begin(found), end(found)));
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
            for (const std::string& line : lines) status_of(parsed(line));
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
            std::cout << status_of(parsed(line)) << std::endl;
        }
    }
    unload();
    if (entries("/proc/self/task") != threads) fail("a thread is left behind");
    if (entries("/proc/self/fd") != descriptors) fail("a descriptor is left behind");
    return 0;
}
