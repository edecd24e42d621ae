#ifndef QUOREL_HOST_XPCALL_ARGUMENTS_H
#define QUOREL_HOST_XPCALL_ARGUMENTS_H

/// Values as people write them on a command line.

#include <string>
#include <string_view>

#include "host/callframe.h"
#include "host/filebytes.h"

namespace host {

/// Reads one argument and gives it to `frame` as parameter `number`: `null`, `int:N`, `@file` (the
/// file's bytes, which `file` then holds and lends to the frame), `text:…` (the rest as it stands);
/// anything else is text. False with a sentence in `error` when a number is none, a file cannot be
/// read, or the frame refuses the value.
bool give_argument(CallFrame& frame, std::uint32_t number, std::string_view written,
                   FileBytes& file, std::string& error);

}  // namespace host

#endif
