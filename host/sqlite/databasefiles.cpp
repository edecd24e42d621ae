#include "host/sqlite/databasefiles.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/sqlite/query.h"

namespace host {

namespace {

using Status = struct stat64;

// What SQLite keeps for a database: the file itself and what lies beside it.
constexpr const char* suffixes[] = {"", "-journal", "-wal", "-shm"};

constexpr const char* descriptors = "/proc/self/fd";

std::optional<Status> status_of(const std::string& file) {
    Status status{};
    if (stat64(file.c_str(), &status) != 0) return std::nullopt;
    return status;
}

bool is_same(const Status& a, const Status& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// What the symbolic link `path` says; nothing when it is none.
std::optional<std::string> link_target(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length < 0) return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

// The folder of a path, with its slash.
std::string folder_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// Where opening `path` would lead, symbolic links followed, also those that lead to nothing yet.
std::string followed(std::string path) {
    constexpr int most_links = 40;  // as the kernel has it
    for (int links = 0; links < most_links; ++links) {
        const std::optional<std::string> target = link_target(path);
        if (!target) break;
        path = target->starts_with('/') ? *target : folder_of(path) + *target;
    }
    return path;
}

// A file that is there, or the place where it would be.
class File {
  public:
    explicit File(const std::string& path) : _status(status_of(path)) {
        if (!_status) _place = followed(path);
    }

    [[nodiscard]] bool is(const Status& status) const {
        return _status && is_same(*_status, status);
    }

    [[nodiscard]] bool is(const std::string& path) const {
        const std::optional<Status> status = status_of(path);
        if (_status || status) return status && is(*status);
        return path.substr(path.rfind('/') + 1) == _place.substr(_place.rfind('/') + 1) &&
               have_one_folder(path, _place);
    }

    [[nodiscard]] bool is_part_of(const std::string& database) const {
        for (const char* suffix : suffixes)
            if (is(database + suffix)) return true;
        return false;
    }

  private:
    static bool have_one_folder(const std::string& a, const std::string& b) {
        const std::optional<Status> one = status_of(folder_of(a));
        const std::optional<Status> other = status_of(folder_of(b));
        return one && other && is_same(*one, *other);
    }

    std::optional<Status> _status;
    std::string _place;
};

bool begins_as_database(int descriptor) {
    constexpr std::string_view header("SQLite format 3\0", 16);
    char bytes[header.size()];
    const ssize_t count = pread(descriptor, bytes, sizeof bytes, 0);
    return count == static_cast<ssize_t>(header.size()) &&
           std::string_view(bytes, header.size()) == header;
}

// SQLite opens a database for both, or, where it may only read, one that is there and has a header.
// A program's log is open for writing alone.
bool may_be_database(int descriptor, const Status& status) {
    if (!S_ISREG(status.st_mode)) return false;
    switch (fcntl(descriptor, F_GETFL) & O_ACCMODE) {
    case O_RDWR:
        return true;
    case O_RDONLY:
        return begins_as_database(descriptor);
    default:
        return false;
    }
}

bool belongs_to(const File& file, int descriptor) {
    Status status{};
    if (fstat64(descriptor, &status) != 0 || !may_be_database(descriptor, status)) return false;
    if (file.is(status)) return true;
    // Its name tells of the files beside it, which may be closed at the moment.
    const auto name = link_target(descriptors + ("/" + std::to_string(descriptor)));
    return name && file.is_part_of(*name);
}

int search_descriptors(const File& file, bool& found) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(descriptors), closedir);
    if (folder == nullptr) return errno == ENOENT ? SQLITE_OK : SQLITE_CANTOPEN;
    while (const dirent* entry = found ? nullptr : readdir(folder.get()))
        // All others are numbers; the folder's own descriptor is among them and no regular file.
        if (*entry->d_name != '.')
            found = belongs_to(file, static_cast<int>(strtol(entry->d_name, nullptr, 10)));
    return SQLITE_OK;
}

}  // namespace

int is_open_database(sqlite3* db, const std::string& name, bool& found) {
    found = false;
    const File file(name);
    std::vector<AttachedDatabase> databases;
    if (const int code = list_databases(db, databases); code != SQLITE_OK) return code;
    for (const AttachedDatabase& database : databases)
        found = found || (!database.file.empty() && file.is_part_of(database.file));
    return found ? SQLITE_OK : search_descriptors(file, found);
}

}  // namespace host
