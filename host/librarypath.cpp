#include "host/librarypath.h"

#include <climits>
#include <cstdlib>

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

}  // namespace

std::string own_folder() {
    const std::string self = own_file();
    return self.substr(0, self.rfind('/') + 1);
}

std::string default_library_path() {
    const char* named = getenv("QUOREL_LIBRARY");
    if (named != nullptr && *named != '\0') return named;

    const std::string folder = own_folder();
    for (const char* below : library_folders) {
        std::string candidate = folder + below + library_name;
        if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
    return folder + library_name;
}

}  // namespace host
