#include "kovcert/tlsstream.h"

#include "kovcert/tlssession.h"

TlsIStream::TlsIStream(TlsConnection* conn, UTHeap* heap)
    : UTPartialBufferedIStream(heap), _conn(conn) {
    _conn->setPartialIO(true);
}

void TlsIStream::set_eof() {
    _conn->shut_down();
    UTPartialBufferedIStream::set_eof();
}

void TlsIStream::refill() {
    size_t count = _data_size;
    const a_dbqxci_error result = _conn->read(reinterpret_cast<char*>(_data), &count);
    if (result == QxciErrWouldBlock) return;  // no end: the caller asks again
    if (result != QxciErrOK) {
        set_eof();
        return;
    }
    _ptr = _data;
    _lim = _data + count;
}

size_t TlsOStream::do_put(const a_byte* data, size_t n) {
    return _conn->write(data, n) == QxciErrOK ? n : static_cast<size_t>(-1);
}
