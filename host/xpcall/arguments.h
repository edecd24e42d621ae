#ifndef QUOREL_HOST_XPCALL_ARGUMENTS_H
#define QUOREL_HOST_XPCALL_ARGUMENTS_H

/// Values as people write them on a command line.

#include <deque>
#include <string>
#include <vector>

#include "host/callframe.h"
#include "host/filebytes.h"
#include "host/xpcall/options.h"

namespace host {

/// Reads the arguments of `call` and gives them to its `frame`, in order. Each is one of `null`,
/// `int:N`, `@file` (the file's bytes, which `files` then holds and lends to the frame: a deque
/// leaves its elements where they are), `text:…` (the rest as it stands), and `out` for an OUT
/// parameter, which `asked` then notes by the parameter's number; anything else is text.
///
/// False with a sentence in `error` when a number is none, a file cannot be read, `out` stands in
/// the wrong place, or the frame refuses a value.
bool give_arguments(CallFrame& frame, const XpcallCall& call, std::deque<FileBytes>& files,
                    std::vector<bool>& asked, std::string& error);

}  // namespace host

#endif
