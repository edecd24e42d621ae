#include "host/postgres/pathguard.h"

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <vector>

#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "host/librarypath.h"

namespace host {

namespace {

constexpr mode_t new_file_mode = 0660;

using Parts = std::vector<std::string_view>;

Parts parts_of(std::string_view path) {
    Parts parts;
    while (!path.empty()) {
        const std::string_view part = path.substr(0, path.find('/'));
        if (!part.empty() && part != ".") parts.push_back(part);
        path.remove_prefix(std::min(part.size() + 1, path.size()));
    }
    return parts;
}

// The way from `folder` to `name`; nothing where the name does not begin with the folder's.
std::optional<std::string> way_from(const Parts& folder, const Parts& name) {
    if (name.size() < folder.size() || !std::equal(folder.begin(), folder.end(), name.begin()))
        return std::nullopt;
    std::string way;
    for (std::size_t i = folder.size(); i < name.size(); ++i)
        way.append(way.empty() ? "" : "/").append(name[i]);
    return way.empty() ? "." : way;
}

Descriptor open_by_kernel(int folder, const std::string& way, int flags, mode_t mode) {
    open_how how{};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    // EAGAIN: something was renamed on the way, and the kernel could not tell whether ".." led out.
    constexpr int most_attempts = 100;
    Descriptor file;
    for (int i = 0; i < most_attempts; ++i) {
        file = Descriptor(
            static_cast<int>(syscall(SYS_openat2, folder, way.c_str(), &how, sizeof how)));
        if (file.is_open() || errno != EAGAIN) break;
    }
    return file;
}

// One step, through no link. ELOOP for a link, EXDEV for "..".
Descriptor step(int folder, const std::string& part, int flags, mode_t mode) {
    errno = EXDEV;
    if (part == "..") return {};
    Descriptor file(openat(folder, part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
    struct stat64 status {};
    if (!file.is_open() || fstat64(file.number(), &status) != 0) return {};
    errno = ELOOP;
    return S_ISLNK(status.st_mode) ? Descriptor() : std::move(file);
}

Descriptor open_by_steps(int folder, const std::string& way, int flags, mode_t mode) {
    Descriptor at(openat(folder, ".", O_PATH | O_CLOEXEC));
    const Parts parts = parts_of(way);
    for (std::size_t i = 0; i + 1 < parts.size() && at.is_open(); ++i)
        at = step(at.number(), std::string(parts[i]), O_PATH, 0);
    if (!at.is_open() || parts.empty()) return at;
    return step(at.number(), std::string(parts.back()), flags, mode);
}

// None with errno set; EXDEV and ELOOP where the way leads out.
Descriptor open_from(int folder, const std::string& way, int flags, mode_t mode) {
    Descriptor file = open_by_kernel(folder, way, flags, mode);
    // Too old a kernel, or one that a container's filter hides it from.
    const bool cannot = !file.is_open() && (errno == ENOSYS || errno == EPERM);
    return cannot ? open_by_steps(folder, way, flags, mode) : std::move(file);
}

Descriptor open_or_create(int folder, const std::string& way, int flags, IfMissing if_missing) {
    // Somebody else may create it first, and remove it again.
    constexpr int most_attempts = 10;
    Descriptor file;
    for (int i = 0; i < most_attempts; ++i) {
        file = open_from(folder, way, flags, 0);
        if (file.is_open() || errno != ENOENT || if_missing == IfMissing::Leave) break;
        // Without O_EXCL a link could be there by now, and a FIFO could be waited for.
        file = open_from(folder, way, O_WRONLY | O_CREAT | O_EXCL, new_file_mode);
        if (file.is_open() || errno != EEXIST) break;
    }
    return file;
}

}  // namespace

Found open_below(std::span<const char* const> folders, std::string_view name, IfMissing if_missing,
                 Descriptor& file) {
    const std::string whole =
        name.starts_with('/') ? std::string(name) : current_folder().append("/").append(name);
    const Parts parts = parts_of(whole);
    const bool is_folder = whole.ends_with('/') || whole.ends_with("/.");
    const int flags = is_folder ? O_PATH | O_DIRECTORY : O_PATH;
    if (is_folder) if_missing = IfMissing::Leave;
    file = {};
    Found found = Found::Outside;
    for (const char* folder : folders) {
        const std::optional<std::string> way = way_from(parts_of(folder), parts);
        if (!way) continue;
        const Descriptor top = open_file(folder, O_PATH | O_DIRECTORY);
        if (top.is_open())
            file = above_standard(open_or_create(top.number(), *way, flags, if_missing));
        if (file.is_open()) return Found::Opened;
        if (!top.is_open() || (errno != EXDEV && errno != ELOOP)) found = Found::Missing;
    }
    return found;
}

std::string name_of(const Descriptor& file) {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file.number());
}

bool NamedLink::make(const std::string& scratch, std::string_view name, const std::string& target) {
    constexpr mode_t private_folder = 0700;
    mkdir(scratch.c_str(), private_folder);
    // The server removes what begins so when it starts.
    std::string folder = scratch + "/pgsql_tmp.quorel.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) return false;
    _folder = folder;
    std::string path = folder.append("/").append(name);
    if (symlink(target.c_str(), path.c_str()) != 0) return false;
    _path = std::move(path);
    return true;
}

NamedLink::~NamedLink() {
    if (!_path.empty()) unlink(_path.c_str());
    if (!_folder.empty()) rmdir(_folder.c_str());
}

}  // namespace host
