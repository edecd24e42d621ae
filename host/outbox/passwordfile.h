#ifndef QUOREL_HOST_OUTBOX_PASSWORDFILE_H
#define QUOREL_HOST_OUTBOX_PASSWORDFILE_H

#include <string>

namespace host::outbox {

/// Reads a password: the first and only line of a file, less its end. False with a sentence in
/// `error`, which never holds what the file does, when it is no such file, or one that people
/// beside its owner and group can read, or others than its owner can write. `path` is absolute.
[[nodiscard]] bool read_password_file(const std::string& path, std::string& password,
                                      std::string& error);

}  // namespace host::outbox

#endif
