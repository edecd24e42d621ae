// Formats from SQL, for printing and for scanning: they reach nothing but their values and buffers,
// and an accepted format does what the C library does with it.
//
// An input is a format, a zero, and the text to scan, which also gives the values to print.

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <dlfcn.h>

#include "extdll/printformat.h"
#include "extdll/scanformat.h"
#include "fuzz/fuzzed.h"

namespace {

constexpr std::size_t count = 50;
using Indexes = std::make_index_sequence<count>;

// True if a number in the format has more digits than these.
bool has_number_beyond(std::size_t most_digits, const std::string& format) {
    std::size_t digits = 0;
    return std::any_of(format.begin(), format.end(), [&](char c) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        return digits > most_digits;
    });
}

template <std::size_t... Index>
int print_directly(char* buffer, std::size_t size, const char* format,
                   const std::array<const char*, count>& values, std::index_sequence<Index...>) {
    return std::snprintf(buffer, size, format, values[Index]...);
}

void print(const std::string& format, const std::string& text) {
    std::vector<std::string> copies;
    for (std::size_t i = 0; i < count; ++i) {
        copies.push_back(text.substr(text.size() * i / count));
    }
    std::array<const char*, count> values;
    for (std::size_t i = 0; i < count; ++i) values[i] = copies[i].c_str();
    if (text.size() % 3 == 0) values[text.size() % count] = nullptr;

    const auto buffer = std::make_unique<char[]>(255);
    std::size_t length = 0;
    if (!format_strings(buffer.get(), 255, format.c_str(), values, &length)) return;
    check(length < 255 && buffer[length] == '\0' && strlen(buffer.get()) == length);
    // The C library would write padding for minutes.
    if (has_number_beyond(4, format)) return;
    char expected[255];
    print_directly(expected, sizeof expected, format.c_str(), values, Indexes());
    check(strcmp(buffer.get(), expected) == 0);
}

using Buffers = std::array<std::unique_ptr<char[]>, count>;

// Allocated one by one, so that a byte too many in any of them is seen.
Buffers fresh_buffers() {
    Buffers buffers;
    for (auto& buffer : buffers) buffer = std::make_unique<char[]>(255);
    return buffers;
}

using Scan = int (*)(const char* text, const char* format, ...);

// The C library's own scan. AddressSanitizer's stands before it otherwise, and trips over formats
// that the library merely stops at.
Scan library_scan() {
    static void* const library = dlopen("libc.so.6", RTLD_NOW);
    return reinterpret_cast<Scan>(dlsym(library, "__isoc99_sscanf"));
}

template <std::size_t... Index>
int scan_into(Scan scan, const std::string& text, const char* format, const Buffers& buffers,
              std::index_sequence<Index...>) {
    return scan(text.c_str(), format, buffers[Index].get()...);
}

void scan(const std::string& format, const std::string& text) {
    const ScanFormat safe(format.c_str());
    if (safe.text() == nullptr) return;
    const Buffers scanned = fresh_buffers();
    const int stored = scan_into(std::sscanf, text, safe.text(), scanned, Indexes());
    check(stored <= static_cast<int>(count));
    for (const auto& buffer : scanned) check(memchr(buffer.get(), '\0', 255) != nullptr);
    // No value of a short text needs cutting, so the format as it came must do the same.
    if (text.size() >= 255 || has_number_beyond(2, format)) return;
    const Buffers direct = fresh_buffers();
    check(std::max(scan_into(library_scan(), text, format.c_str(), direct, Indexes()), 0) ==
          std::max(stored, 0));
    for (std::size_t i = 0; stored > 0 && i < static_cast<std::size_t>(stored); ++i) {
        check(memcmp(scanned[i].get(), direct[i].get(), 255) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const std::string format = input.text(), text = input.rest();
    print(format, text);
    scan(format, text);
    return 0;
}
