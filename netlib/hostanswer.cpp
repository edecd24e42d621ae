#include "netlib/hostanswer.h"

#include "utils/utmem/utmem.h"

a_bool HostAnswer::_grow() {
    constexpr size_t first_buflen = 1024;
    constexpr size_t max_buflen = 1024 * first_buflen;
    if (_buflen >= max_buflen) return false;
    _buf.reset();  // what it holds is of no use, so that there need not be room for both
    _buflen = _buflen == 0 ? first_buflen : 4 * _buflen;
    _buf.reset(static_cast<char*>(ut_malloc(_buflen)));
    return _buf != nullptr;
}
