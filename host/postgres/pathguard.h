#ifndef QUOREL_HOST_POSTGRES_PATHGUARD_H
#define QUOREL_HOST_POSTGRES_PATHGUARD_H

/// Files below folders that an administrator has named, and no others.

#include <span>
#include <string>
#include <string_view>

#include "host/descriptor.h"

namespace host {

enum class Found {
    Opened,
    Missing,  ///< it is below a folder, and cannot be opened: it does not exist, or may not be read
    Outside   ///< below none of them, or a link or ".." leads out
};

enum class IfMissing { Leave, Create };

/// Opens what `name` names, absolute or from this process's folder, below one of `folders`, which
/// are absolute. The kernel looks the name up and judges each step as it takes it (Linux:
/// openat2(2) with RESOLVE_BENEATH), so that links that change meanwhile lead nowhere else. Where
/// it cannot, links and ".." are refused altogether.
///
/// `file` is only a hold (O_PATH) on what is there, whatever its kind, and waits for nothing. With
/// IfMissing::Create there is a new, empty file where there was none.
[[nodiscard]] Found open_below(std::span<const char* const> folders, std::string_view name,
                               IfMissing if_missing, Descriptor& file);

/// What every process of this account may open for what `file` holds, as long as it is open: a link
/// of the kernel's that nobody can change.
[[nodiscard]] std::string name_of(const Descriptor& file);

/// Names a file that is not there, and cannot be.
inline constexpr const char* no_file = "/dev/null/none";

/// A name of the caller's choice for an open file: a link of that name in a folder that is made for
/// it and goes with it.
class NamedLink {
  public:
    NamedLink() = default;
    NamedLink(const NamedLink&) = delete;
    NamedLink& operator=(const NamedLink&) = delete;
    ~NamedLink();

    /// Makes `name`, without a slash, for `target` in a new folder below `scratch`, which is made
    /// if it is not there. False with errno set.
    bool make(const std::string& scratch, std::string_view name, const std::string& target);

    [[nodiscard]] const std::string& path() const { return _path; }

  private:
    std::string _folder;  // empty: none
    std::string _path;    // empty: none
};

}  // namespace host

#endif
