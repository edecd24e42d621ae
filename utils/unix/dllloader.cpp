#include "utils/unix/dllloader.h"

#include <atomic>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>

#include "utils/etc/utsnprintf.h"
#include "utils/unix/utdescriptor.h"
#include "utils/utmem/uttext.h"

namespace {

std::atomic<a_dll_report> dll_report{nullptr};

// A version record is a row of terminated strings that ends with an empty one; its first string
// starts with "@@" and this. Whoever looks for the record in the file that this code is in must not
// find this text in its place, so that the beginning is missing.
constexpr std::string_view marker_without_start = "==Version==@1@";
constexpr std::string_view ident_key = "IDENT=";

/// Everything that is in the file, terminated, read because a mapping would end the host where the
/// file is cut meanwhile; none when it cannot be read or held.
UTText contents_of(const char* path, size_t* len) {
    const UTDescriptor file(_posix_open(path, O_RDONLY | O_NONBLOCK, 0));
    if (!file.is_open()) return nullptr;
    const int64 size = _posix_filelength(file.get());
    UTText contents;
    if (size > 0 && static_cast<uint64>(size) < SIZE_MAX) {
        contents.reset(static_cast<char*>(ut_malloc(static_cast<size_t>(size) + 1)));
    }
    size_t got = 0;
    while (contents != nullptr && got < static_cast<size_t>(size)) {
        const ssize_t count =
            _posix_read(file.get(), contents.get() + got, static_cast<size_t>(size) - got);
        if (count <= 0) break;
        got += static_cast<size_t>(count);
    }
    if (contents != nullptr) contents.get()[got] = '\0';
    *len = got;
    return contents;
}

/// The identification in the version record of a file's contents; empty when there is none.
std::string_view version_in(std::string_view contents) {
    size_t place = contents.find(marker_without_start);
    while (place != std::string_view::npos && place < contents.size()) {
        const std::string_view entry = contents.substr(place, contents.find('\0', place) - place);
        if (entry.empty()) break;
        if (entry.starts_with(ident_key)) return entry.substr(ident_key.size());
        place += entry.size() + 1;
    }
    return {};
}

void report_load(a_dll_report report, const char* path) {
    size_t len = 0;
    const UTText contents = contents_of(path, &len);
    std::string_view version = version_in({contents.get(), contents != nullptr ? len : 0});
    if (version.empty()) version = "(Version info not available)";
    constexpr size_t max_line = 4096 + 256;
    const UTText line(static_cast<char*>(ut_alloc(max_line)));
    ut_snprintf(line.get(), max_line, "Loading DLL \"%s\", %.*s", path,
                static_cast<int>(version.size()), version.data());
    report(line.get());
}

}  // namespace

void ut_dll_set_report(a_dll_report report) {
    dll_report.store(report);
}

// Of null, the system's calls make the host's program and everything that is loaded.
void* ut_dll_open(const char* path) {
    if (path == nullptr) return nullptr;
    const a_dll_report report = dll_report.load();
    if (report != nullptr) report_load(report, path);
    // RTLD_NOW: a symbol that is missing shows here, not as the end of the process at a first call.
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

void* ut_dll_symbol(void* dll, const char* name) {
    return dll != nullptr ? dlsym(dll, name) : nullptr;
}

void ut_dll_close(void* dll) {
    if (dll != nullptr) dlclose(dll);
}
