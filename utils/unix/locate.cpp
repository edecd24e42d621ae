#include "utils/unix/locate.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include <dlfcn.h>
#include <sys/stat.h>

#include "utils/etc/utsnprintf.h"
#include "utils/unix/posixio.h"

namespace {

constexpr const char* library_directories[] = {"", "/../lib/quorel", "/../lib"};
constexpr const char* resource_directories[] = {"", "/../share/quorel", "/../../share/quorel"};

std::span<const char* const> directories_for(a_locate_kind kind) {
    switch (kind) {
    case LOCATE_LIBRARY:
        return library_directories;
    case LOCATE_RESOURCE:
        return resource_directories;
    }
    return {};
}

bool is_bare_name(const char* name) {
    return name != nullptr && *name != '\0' && std::strchr(name, '/') == nullptr;
}

bool is_regular_file(const char* path) {
    a_posix_statbuf status;
    return _posix_stat(path, &status) == 0 && S_ISREG(status.pst_mode);
}

/// Joins directory and name; false when the path does not fit.
bool make_path(const char* directory, const char* below, const char* name, char* path, size_t len) {
    const size_t length = std::strlen(directory) + std::strlen(below) + 1 + std::strlen(name);
    if (length >= len) return false;
    ut_snprintf(path, len, "%s%s/%s", directory, below, name);
    return true;
}

/// Where the directory part of an absolute path ends; null for other paths.
const char* directory_end(const char* path) {
    return path[0] == '/' ? std::strrchr(path, '/') : nullptr;
}

bool copy_directory(const char* path, char* directory, size_t len) {
    const char* end = directory_end(path);
    if (end == nullptr) return false;
    const size_t length = static_cast<size_t>(end - path);
    if (length >= len) return false;
    std::memcpy(directory, path, length);
    directory[length] = '\0';
    return true;
}

/// The path in a line of /proc/self/maps (proc(5)), if its address range holds `address`.
const char* path_of_mapping(char* line, uintptr_t address) {
    uintptr_t first = 0;
    uintptr_t behind = 0;
    int path = 0;
    const int fields =
        std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %*s %*s %*s %*s %n", &first, &behind, &path);
    if (fields != 2 || path == 0 || address < first || address >= behind) return nullptr;
    line[std::strcspn(line, "\n")] = '\0';
    // How the kernel writes a line end in a name, or what the name says itself: the loader knows.
    return std::strstr(line + path, "\\012") == nullptr ? line + path : nullptr;
}

/// Asks the kernel, which knows the file's full path however the loader was told to find it.
bool directory_from_mappings(uintptr_t address, char* directory, size_t len) {
    std::FILE* maps = _posix_fopen("/proc/self/maps", "r");
    if (maps == nullptr) return false;
    // The rest of a longer line comes as a line of its own, which starts with no addresses.
    std::array<char, LOCATE_MAX_PATH + 128> line;
    bool found = false;
    while (!found && std::fgets(line.data(), line.size(), maps) != nullptr) {
        const char* path = path_of_mapping(line.data(), address);
        found = path != nullptr && copy_directory(path, directory, len);
    }
    std::fclose(maps);
    return found;
}

/// Asks the loader; for a system without /proc, and for a name that the kernel does not tell
/// plainly.
bool directory_from_loader(const void* address, char* directory, size_t len) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || directory_end(info.dli_fname) == nullptr) return false;
    char* resolved = realpath(info.dli_fname, nullptr);
    if (resolved == nullptr) return false;
    const bool fits = copy_directory(resolved, directory, len);
    std::free(resolved);
    return fits;
}

}  // namespace

a_bool ut_locate_own_directory(char* directory, size_t len) {
    const void* own_code = reinterpret_cast<const void*>(&ut_locate_own_directory);
    return directory_from_mappings(reinterpret_cast<uintptr_t>(own_code), directory, len) ||
           directory_from_loader(own_code, directory, len);
}

a_bool ut_locate_file_from(const char* directory, a_locate_kind kind, const char* name, char* path,
                           size_t len) {
    if (is_bare_name(name)) {
        for (const char* below : directories_for(kind)) {
            if (make_path(directory, below, name, path, len) && is_regular_file(path)) return true;
        }
    }
    if (len > 0) path[0] = '\0';
    return false;
}

a_bool ut_locate_file(a_locate_kind kind, const char* name, char* path, size_t len) {
    std::array<char, LOCATE_MAX_PATH> directory;
    const bool known = ut_locate_own_directory(directory.data(), directory.size());
    if (!known) {
        if (len > 0) path[0] = '\0';
        return false;
    }
    return ut_locate_file_from(directory.data(), kind, name, path, len);
}
