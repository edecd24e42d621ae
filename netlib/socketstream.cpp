#include "netlib/socketstream.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "netlib/netsocket.h"

void SockIStream::set_eof() {
    _socket.shutdown(SHUTDOWN_RECV);
    UTPartialBufferedIStream::set_eof();
}

void SockIStream::refill() {
    const int count = _socket.recv(reinterpret_cast<char*>(_data), _data_size);
    if (count > 0) {
        _ptr = _data;
        _lim = _data + count;
        return;
    }
    // Nothing yet is no end: the caller asks again.
    if (count == -1 && _socket.getLastError().code() == EAGAIN) return;
    set_eof();
}

size_t SockOStream::do_put(const a_byte* data, size_t n) {
    const auto length = static_cast<unsigned int>(std::min<size_t>(n, INT_MAX));
    // A failure, -1, becomes the (size_t)-1 of streams.
    return static_cast<size_t>(_socket.send(reinterpret_cast<const char*>(data), length));
}
