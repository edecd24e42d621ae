#ifndef QUOREL_NETLIB_HOSTANSWER_H
#define QUOREL_NETLIB_HOSTANSWER_H

#include <cerrno>
#include <cstddef>

#include <netdb.h>

#include "utils/etc/uttypes.h"
#include "utils/utmem/uttext.h"

/// Room for one answer about a host, which grows to what the answer needs. The C library's own room
/// (gethostbyname(3)) is shared by the whole process: a lock of this library would not keep the
/// host's other code from it.
class HostAnswer {
  public:
    /// Runs `ask`(&entry, buf, buflen, &found), which returns ERANGE for want of room, with more
    /// and more of it. Returns what it found, valid as long as this object; null for nothing.
    template <class Ask>
    const hostent* fill(Ask ask) {
        hostent* found = nullptr;
        while (_grow()) {
            if (ask(&_entry, _buf.get(), _buflen, &found) != ERANGE) return found;
        }
        return nullptr;
    }
    /// After fill(): false when it found nothing for want of memory.
    a_bool has_room() const { return _buf != nullptr; }

  private:
    /// False without memory, or beyond what any answer needs.
    a_bool _grow();

    hostent _entry = {};
    UTText _buf;
    size_t _buflen = 0;
};

#endif
