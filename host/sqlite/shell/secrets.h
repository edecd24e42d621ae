#ifndef QUOREL_HOST_SQLITE_SHELL_SECRETS_H
#define QUOREL_HOST_SQLITE_SHELL_SECRETS_H

#include <string_view>

namespace host {

/// True when `entry`, one or more statements, may hold a password: it says "password", adds a
/// row to quorel_account, or calls a procedure with as many arguments without names as reach to its
/// password. In doubt true.
[[nodiscard]] bool tells_password(std::string_view entry);

}  // namespace host

#endif
