#ifndef QUOREL_PROVIDERS_STUB_STUBWIRE_H
#define QUOREL_PROVIDERS_STUB_STUBWIRE_H

/// The records of qxcistub.h, sent and received through the owner's callbacks.

#include <cstddef>

#include "kovcert/qxci/qxci.h"
#include "providers/stub/qxcistub.h"

enum class StubRecord { hello, data, close };

class StubWire {
  public:
    void set_callbacks(const a_qxci_conn_callbacks& callbacks, void* user_data) {
        _callbacks = callbacks;
        _user_data = user_data;
    }

    /// Why the last result was QXCI_IO_ERROR: the code, and a system code or 0.
    a_dbqxci_error code() const { return _code; }
    uint32_t system_code() const { return _system_code; }

    /// The payload of the next record is put together here, QXCI_STUB_MAX_PAYLOAD bytes at most.
    char* payload() { return _out + QXCI_STUB_HEADER_SIZE; }
    /// Sends it with its header in one piece.
    a_qxci_io_result send(StubRecord record, size_t len);

    /// Receives a header, or takes up one that has not been received whole. QXCI_IO_OK: *record is
    /// the one whose payload, of which left() bytes are still to come, is to be received now; also
    /// when the header was received earlier. An error of code `bad` for anything but a header.
    a_qxci_io_result receive_header(StubRecord* record, a_dbqxci_error bad);
    size_t left() const { return _left; }

    /// Receives up to `len` bytes of the payload, if there are any left.
    a_qxci_io_result receive_payload(void* buf, size_t len, size_t* got);

    /// Goes on to the next header, the payload having been received.
    void finish_record() { _received = 0; }

    a_qxci_io_result fail(a_dbqxci_error code, uint32_t system_code = 0);

  private:
    a_qxci_io_result receive(void* buf, size_t len, size_t* got);
    bool parse_header();

    a_qxci_conn_callbacks _callbacks = {};
    void* _user_data = nullptr;
    a_dbqxci_error _code = QxciErrOK;
    uint32_t _system_code = 0;
    unsigned _empty_reads = 0;  // on end

    char _in[QXCI_STUB_HEADER_SIZE + 1] = {};
    size_t _received = 0;  // of the header
    StubRecord _record = StubRecord::hello;
    size_t _left = 0;
    char _out[QXCI_STUB_HEADER_SIZE + QXCI_STUB_MAX_PAYLOAD];
};

#endif
