#include "host/library.h"

#include <dlfcn.h>

#include "host/descendants.h"
#include "host/librarypath.h"

namespace host {

namespace {

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
    return text + (sizeof(void*) == 8
                       ? "; this is a 64-bit program, which needs the library of a "
                         "64-bit build (libquorel for amd64, or cmake --preset release64)"
                       : "; this is a 32-bit program, which needs the library of a "
                         "32-bit build (libquorel for i386, or cmake --preset release)");
}

}  // namespace

Library Library::load(std::string path, std::string& error, std::string_view remedy) {
    if (path.empty()) path = default_library_path();
    // A bare name is a file of this folder, not one for the dynamic linker to search for.
    if (path.find('/') == std::string::npos) path.insert(0, "./");

    Library library;
    // At once, because a symbol that is missing would else end the program in the middle of a call;
    // for nobody else, because the program may have functions of the same names.
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

an_extfn_proc* Library::procedure(std::string_view name) const {
    if (_handle == nullptr) return nullptr;
    return symbol<an_extfn_proc>(_handle.get(), std::string(name).c_str());
}

CallEnd Library::call(std::string_view name, an_extfn_api& api, void* handle,
                      const Interrupted& /*interrupted*/, std::string& error) const {
    an_extfn_proc* entry = procedure(name);
    if (entry == nullptr) {
        error = "the library does not export " + std::string(name) +
                "; use a library and a host of one build";
        return CallEnd::NotCalled;
    }
    const OrphansStay until_it_ends;
    entry(&api, handle);
    return CallEnd::Returned;
}

}  // namespace host
