// mailcall LIBRARY: calls the mail procedures of a library as a server would, one call for each
// line of standard input, and prints the status of each call on a line of its own ("-" when none is
// set). A line is the procedure's name and, for each argument that is not NULL, its number, its
// type code and its bytes, at least one, in hexadecimal digits, separated by blanks. At the end the
// library is unloaded, and standard error gets the number of threads and descriptors that are left.
//
// A line "memory" prints the size of the process's address space in KiB.
//
// After a line "threads N" the calls of all lines that follow are made over and over by N threads,
// each beginning elsewhere, and soon the program exits while they do. An exit handler, older than
// the library, then stops the default session and prints the status as for any other call.

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

void* library = nullptr;

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

// Without a procedure where the library has none of that name.
Call parsed(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    Call call;
    call.procedure = reinterpret_cast<an_extfn_proc*>(dlsym(library, word.c_str()));
    uint32_t number = 0;
    for (int type = 0; words >> number >> type >> word;)
        call.arguments[number] = {type, from_hex(word)};
    return call;
}

void make(Call& call) {
    an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
    call.procedure(&api, &call);
}

void stop_at_exit() {
    if (library == nullptr) return;
    Call stop = parsed("xp_stopsmtp");
    make(stop);
    std::cout << stop.status << std::endl;
}

// What the threads use is never destroyed.
void exit_beside_threads(size_t count) {
    auto& calls = *new std::vector<Call>;
    auto& made = *new std::atomic<size_t>;
    for (std::string line; std::getline(std::cin, line);) calls.push_back(parsed(line));
    for (size_t thread = 0; thread < count; ++thread) {
        std::thread([&calls, &made, at = thread * calls.size() / count]() mutable {
            for (;; ++made) {
                Call call = calls[at++ % calls.size()];
                make(call);
            }
        }).detach();
    }
    while (made < 4 * calls.size()) usleep(1000);
    std::exit(0);
}

// That of the descriptors counts the one it is read through.
std::ptrdiff_t entries(const char* folder) {
    const std::filesystem::directory_iterator found(folder);
    return std::distance(begin(found), end(found));
}

size_t kilobytes_of_address_space() {
    std::ifstream status("/proc/self/statm");
    size_t pages = 0;
    status >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace

int main(int, char** arguments) {
    std::atexit(stop_at_exit);
    library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << dlerror() << '\n';
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        if (line.starts_with("threads ")) exit_beside_threads(std::stoul(line.substr(8)));
        if (line == "memory") {
            std::cout << kilobytes_of_address_space() << std::endl;
            continue;
        }
        Call call = parsed(line);
        if (call.procedure == nullptr) return 2;
        make(call);
        std::cout << call.status << std::endl;
    }
    dlclose(library);
    library = nullptr;
    std::cerr << "threads " << entries("/proc/self/task") << ", descriptors "
              << entries("/proc/self/fd") - 1 << '\n';
    return 0;
}
