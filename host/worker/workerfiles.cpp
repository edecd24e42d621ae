#include "host/worker/workerfiles.h"

#include <cerrno>
#include <cstring>

#include <elf.h>
#include <unistd.h>

#include "host/descriptor.h"
#include "host/librarypath.h"

namespace host {

namespace {

constexpr const char* program_name = "quorel-worker";

// As seen from the library's folder: beside it, and in a build tree.
constexpr const char* beside_library[] = {"", "../host/worker/"};
// As seen from the host's: the same.
constexpr const char* beside_host[] = {"", "worker/", "../worker/"};

// ELFCLASS32 or ELFCLASS64; ELFCLASSNONE for what is not there or is no ELF file.
int elf_class(const std::string& path) {
    unsigned char ident[EI_NIDENT] = {};
    const Descriptor file = open_file(path.c_str(), O_RDONLY);
    if (!file.is_open() || read(file.number(), ident, sizeof ident) != sizeof ident ||
        memcmp(ident, ELFMAG, SELFMAG) != 0)
        return ELFCLASSNONE;
    return ident[EI_CLASS];
}

bool find_program(const std::string& folder, const char* below, int wanted, std::string& program) {
    program = folder + below + program_name;
    return access(program.c_str(), X_OK) == 0 && elf_class(program) == wanted;
}

}  // namespace

bool find_worker(const std::string& library, std::string_view remedy, WorkerFiles& files,
                 std::string& error) {
    files.library = library.empty() ? default_library_path(WordSize::Any) : library;
    if (files.library.find('/') == std::string::npos) files.library.insert(0, "./");
    if (access(files.library.c_str(), R_OK) != 0) {
        // In the words of the dynamic linker, which says it where the host loads the library.
        error = "cannot load " + files.library +
                ": cannot open shared object file: " + strerror(errno) + "; ";
        error.append(remedy);
        return false;
    }
    // The host may work in another folder by the time the worker starts.
    if (!files.library.starts_with('/')) files.library.insert(0, current_folder() + "/");
    const int wanted = elf_class(files.library);
    const std::string folder = files.library.substr(0, files.library.rfind('/') + 1);
    for (const char* below : beside_library)
        if (find_program(folder, below, wanted, files.program)) return true;
    const std::string own = own_folder();
    for (const char* below : beside_host)
        if (find_program(own, below, wanted, files.program)) return true;
    error = wanted == ELFCLASSNONE ? "cannot load " + files.library + ": it is no library"
                                   : "there is no quorel-worker for " + files.library +
                                         "; put the one that came with it beside it";
    return false;
}

}  // namespace host
