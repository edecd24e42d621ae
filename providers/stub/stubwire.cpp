#include "providers/stub/stubwire.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <time.h>

namespace {

const char* kind_of(StubRecord record) {
    switch (record) {
    case StubRecord::hello:
        return QXCI_STUB_HELLO;
    case StubRecord::data:
        return QXCI_STUB_DATA;
    case StubRecord::close:
        break;
    }
    return QXCI_STUB_CLOSE;
}

void print_header(char (&header)[QXCI_STUB_HEADER_SIZE + 1], StubRecord record, size_t len) {
    std::snprintf(header, sizeof header, QXCI_STUB_HEADER_FORMAT, kind_of(record),
                  static_cast<unsigned>(len));
}

/// Keeps a caller that asks again and again from using up the processor.
void pause_after_empty_read() {
    const timespec millisecond = {0, 1000000};
    nanosleep(&millisecond, nullptr);
}

}  // namespace

a_qxci_io_result StubWire::fail(a_dbqxci_error code, uint32_t system_code) {
    _code = code;
    _system_code = system_code;
    return QXCI_IO_ERROR;
}

a_qxci_io_result StubWire::send(StubRecord record, size_t len) {
    char header[QXCI_STUB_HEADER_SIZE + 1];
    print_header(header, record, len);
    std::memcpy(_out, header, QXCI_STUB_HEADER_SIZE);
    const a_qxci_io_result result =
        _callbacks.write_cb(_user_data, reinterpret_cast<const unsigned char*>(_out),
                            static_cast<unsigned>(QXCI_STUB_HEADER_SIZE + len));
    return result == QXCI_IO_OK ? QXCI_IO_OK : fail(QxciErrIOError);
}

a_qxci_io_result StubWire::receive(void* buf, size_t len, size_t* got) {
    unsigned count = 0;
    const a_qxci_io_result result = _callbacks.read_cb(_user_data, static_cast<unsigned char*>(buf),
                                                       static_cast<unsigned>(len), &count);
    // More than was asked for is a fault of the callback, which has gone beyond the buffer.
    if (result == QXCI_IO_OK && count > 0 && count <= len) {
        _empty_reads = 0;
        *got = count;
        return QXCI_IO_OK;
    }
    if (result != QXCI_IO_WOULD_BLOCK) return fail(QxciErrIOError);
    // A callback does not tell a slow peer from one that has gone, so that patience must end.
    if (++_empty_reads == QXCI_STUB_MAX_EMPTY_READS) return fail(QxciErrConnectionClosed);
    if (_empty_reads > 1) pause_after_empty_read();
    return QXCI_IO_WOULD_BLOCK;
}

/// Checks that the header is exactly what would be sent for its kind and length: what strtoul()
/// takes besides, blanks and signs, does not print alike.
bool StubWire::parse_header() {
    constexpr size_t length_at = QXCI_STUB_HEADER_SIZE - 6;
    _left = std::strtoul(_in + length_at, nullptr, 10);
    if (_left > QXCI_STUB_MAX_PAYLOAD) return false;
    for (const StubRecord record : {StubRecord::hello, StubRecord::data, StubRecord::close}) {
        char expected[QXCI_STUB_HEADER_SIZE + 1];
        print_header(expected, record, _left);
        _record = record;
        if (std::memcmp(_in, expected, sizeof expected) == 0) return true;
    }
    return false;
}

a_qxci_io_result StubWire::receive_header(StubRecord* record, a_dbqxci_error bad) {
    while (_received < QXCI_STUB_HEADER_SIZE) {
        size_t got;
        const a_qxci_io_result result =
            receive(_in + _received, QXCI_STUB_HEADER_SIZE - _received, &got);
        if (result != QXCI_IO_OK) return result;
        _received += got;
        if (_received == QXCI_STUB_HEADER_SIZE && !parse_header()) return fail(bad, EPROTO);
    }
    *record = _record;
    return QXCI_IO_OK;
}

a_qxci_io_result StubWire::receive_payload(void* buf, size_t len, size_t* got) {
    *got = 0;
    if (_left == 0) return QXCI_IO_OK;
    const a_qxci_io_result result = receive(buf, std::min(len, _left), got);
    _left -= *got;
    return result;
}
