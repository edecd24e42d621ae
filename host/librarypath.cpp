#include "host/librarypath.h"

#include <climits>
#include <cstdlib>
#include <span>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace host {

namespace {

// Where the library lies as seen from the host's folder: beside it, installed (as this build would
// be, and in the folders that distributions have), and in a build tree. The first that is there is
// taken, loadable or not: the loader tells why, which helps more than another library.
constexpr const char* library_folders[] = {
    "",
    QUOREL_LIBRARY_FOLDER,
#if defined(__i386__)
    "../lib/i386-linux-gnu/",
    "../lib32/",
#elif defined(__x86_64__)
    "../lib/x86_64-linux-gnu/",
    "../lib64/",
#endif
    "../lib/",
    "../extdll/",
    "../../extdll/",
};

// Where the installations of the other word size lie, for a host that does not load it itself.
constexpr const char* other_folders[] = {
#if defined(__i386__)
    "../lib/x86_64-linux-gnu/",
    "../lib64/",
#else
    "../lib/i386-linux-gnu/",
    "../lib32/",
#endif
};

// The file that this code was linked into. The dynamic linker knows an extension by the path that
// it was loaded from, and the program itself by an empty name.
std::string own_file() {
    Dl_info info{};
    void* extra = nullptr;
    const auto* here = reinterpret_cast<const void*>(&own_file);
    if (dladdr1(here, &info, &extra, RTLD_DL_LINKMAP) == 0 || extra == nullptr) return {};
    const char* name = static_cast<const link_map*>(extra)->l_name;
    char resolved[PATH_MAX];
    return realpath(*name == '\0' ? "/proc/self/exe" : name, resolved) != nullptr ? resolved : "";
}

bool find_in(std::span<const char* const> folders, const std::string& below, std::string& found) {
    for (const char* folder : folders) {
        found = below + folder + library_name;
        if (access(found.c_str(), R_OK) == 0) return true;
    }
    return false;
}

}  // namespace

std::string own_folder() {
    const std::string self = own_file();
    return self.substr(0, self.rfind('/') + 1);
}

std::string default_library_path(WordSize size) {
    const char* named = getenv("QUOREL_LIBRARY");
    if (named != nullptr && *named != '\0') return named;

    const std::string folder = own_folder();
    std::string found;
    if (find_in(library_folders, folder, found)) return found;
    if (size == WordSize::Any && find_in(other_folders, folder, found)) return found;
    return folder + library_name;
}

std::string current_folder() {
    char folder[PATH_MAX];
    return getcwd(folder, sizeof folder) != nullptr ? folder : "";
}

}  // namespace host
