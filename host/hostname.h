#ifndef QUOREL_HOST_HOSTNAME_H
#define QUOREL_HOST_HOSTNAME_H

/// What kind of thing people gave as a mail server's host.

#include <string_view>

namespace host {

/// True only for what certainly is this machine: "localhost", 127.0.0.0/8 in four decimal parts,
/// ::1, and the former written as ::ffff:127.0.0.1. Not for other spellings that a resolver would
/// understand ("127.1", "2130706433", "localhost."): what is doubtful is another machine.
[[nodiscard]] bool is_loopback(std::string_view host);

/// True for a name as certificates carry it: letters, digits, "-" and "_" between dots, and no
/// address in any spelling.
[[nodiscard]] bool is_host_name(std::string_view host);

}  // namespace host

#endif
