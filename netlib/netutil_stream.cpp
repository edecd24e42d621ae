#include <cstring>

#include "netlib/netutil.h"
#include "utils/etc/utstream.h"

a_bool TcpUtil::ListenerAddrToUTOStream(const IPAddress& ip, UTOStream& out) {
    char text[80];
    if (!ip.toString(text, sizeof text, true, false, true)) return false;
    return out.put(text) == std::strlen(text);
}
