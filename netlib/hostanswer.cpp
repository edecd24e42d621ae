#include "netlib/hostanswer.h"

#include "utils/utmem/utmem.h"

HostAnswer::~HostAnswer() {
    ut_free(_buf);
}

a_bool HostAnswer::_Grow() {
    constexpr size_t first_buflen = 1024;
    constexpr size_t max_buflen = 1024 * first_buflen;
    if (_buflen >= max_buflen) return false;
    ut_free(_buf);
    _buflen = _buflen == 0 ? first_buflen : 4 * _buflen;
    _buf = static_cast<char*>(ut_malloc(_buflen));
    return _buf != nullptr;
}
