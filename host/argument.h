#ifndef QUOREL_HOST_ARGUMENT_H
#define QUOREL_HOST_ARGUMENT_H

/// Values as people write them on a command line.

#include <string>
#include <string_view>

#include "host/callframe.h"

namespace host {

/// Reads one argument: `null`, `int:N`, `@file` (the file's bytes), `text:…` (the rest as it
/// stands); anything else is text. False with a sentence in `error` when a number is none or a file
/// cannot be read.
bool read_argument(std::string_view written, Value& value, std::string& error);

}  // namespace host

#endif
