#ifndef QUOREL_NETLIB_NETUTIL_SITE_H
#define QUOREL_NETLIB_NETUTIL_SITE_H

#include "utils/etc/uttypes.h"

namespace TcpUtil {

/// Whether the first 4096 bytes of the file `path` contain `domain`, whatever the case of letters,
/// with an optional "." after it, before a blank, a line end or the end of what was read.
a_bool _ConfigNamesDomain(const char* path, const char* domain);

}  // namespace TcpUtil

#endif
