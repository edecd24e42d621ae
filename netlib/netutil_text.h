#ifndef QUOREL_NETLIB_NETUTIL_TEXT_H
#define QUOREL_NETLIB_NETUTIL_TEXT_H

#include <cstddef>

#include "utils/etc/uttypes.h"

namespace TcpUtil {

/// Appends to the text in `buf` of `buflen` bytes. False when it does not fit: then as much as fits
/// is there.
a_bool AppendText(char* buf, size_t buflen, const char* text);
/// Appends ":" and the port in decimal.
a_bool AppendPort(char* buf, size_t buflen, uint16 port);

}  // namespace TcpUtil

#endif
