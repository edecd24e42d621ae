#ifndef QUOREL_HOST_LIBRARYPATH_H
#define QUOREL_HOST_LIBRARYPATH_H

/// Where the files of a build or an installation lie, as seen from a host's own.

#include <string>

namespace host {

inline constexpr const char* library_name = "libquorel_static.so";

/// What the user of a program that has --lib can do where it is missing.
inline constexpr const char* library_remedy =
    "install libquorel, build it with tools/demo, or name its file with --lib or in QUOREL_LIBRARY";

/// The folder of the file that this code was linked into, an executable or an extension, with its
/// slash; empty when it cannot be told.
[[nodiscard]] std::string own_folder();

/// Where a host looks for the library when it is told nothing: QUOREL_LIBRARY if set, else
/// libquorel_static.so in own_folder(), else in the library folder of an installation whose
/// programs' folder is the host's, else where a build tree keeps it. Names the place beside the
/// host when there is none anywhere.
/// With WordSize::Any the folders of the other word size come last.
enum class WordSize { Own, Any };
[[nodiscard]] std::string default_library_path(WordSize size = WordSize::Own);

/// The folder that this process works in; empty when it is gone.
[[nodiscard]] std::string current_folder();

}  // namespace host

#endif
