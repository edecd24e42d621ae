#include "host/library.h"

#include <climits>
#include <cstdlib>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace host {

namespace {

constexpr const char* library_name = "libquorel_static.so";

// Where the library lies as seen from the host's folder: beside it, installed (as this build would
// be, and in the folders that distributions have), and in a build tree.
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

template <typename Function>
Function* symbol(void* handle, const char* name) {
    return reinterpret_cast<Function*>(dlsym(handle, name));
}

// What the dynamic linker said, in words that a user can act on.
std::string load_failure(const std::string& path, std::string_view remedy) {
    const char* said = dlerror();
    std::string text = said != nullptr ? said : "unknown error";
    if (!text.starts_with(path)) text.insert(0, path + ": ");
    text.insert(0, "cannot load ");
    if (text.find("wrong ELF class") == std::string::npos) return text.append("; ").append(remedy);
    return text + (sizeof(void*) == 8 ? "; this is a 64-bit program, which needs the library of a "
                                        "64-bit build (cmake --preset release64)"
                                      : "; this is a 32-bit program, which needs the library of a "
                                        "32-bit build (cmake --preset release)");
}

}  // namespace

Library Library::load(std::string path, std::string& error, std::string_view remedy) {
    if (path.empty()) path = default_path();
    // A bare name is a file of this folder, not one for the dynamic linker to search for.
    if (path.find('/') == std::string::npos) path.insert(0, "./");

    Library library;
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        error = load_failure(path, remedy);
        return {};
    }
    library._handle = {handle, dlclose};
    auto* version = symbol<an_extfn_use_new_api_fn>(handle, "extfn_use_new_api");
    library._cancel = symbol<an_extfn_cancel_fn>(handle, "extfn_cancel");
    if (version == nullptr || library._cancel == nullptr) {
        error = path + " is not a procedure library: it lacks " +
                (version == nullptr ? "extfn_use_new_api" : "extfn_cancel") + "; name " +
                library_name + " in its place";
        return {};
    }
    if (const std::uint32_t spoken = version(); spoken != EXTFN_API_VERSION) {
        error = path + " speaks version " + std::to_string(spoken) +
                " of the calling interface and this host version " +
                std::to_string(EXTFN_API_VERSION) + "; use a library and a host of one build";
        return {};
    }
    return library;
}

std::string Library::default_path() {
    const char* named = getenv("QUOREL_LIBRARY");
    if (named != nullptr && *named != '\0') return named;

    const std::string self = own_file();
    const std::string folder = self.substr(0, self.rfind('/') + 1);
    for (const char* below : library_folders) {
        std::string candidate = folder + below + library_name;
        if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
    return folder + library_name;
}

an_extfn_proc* Library::procedure(std::string_view name) const {
    if (_handle == nullptr) return nullptr;
    return symbol<an_extfn_proc>(_handle.get(), std::string(name).c_str());
}

}  // namespace host
