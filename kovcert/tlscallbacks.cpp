#include "kovcert/tlscallbacks.h"

#include "kovcert/tlssession.h"

namespace {

TlsConnection& connection_of(void* conn) {
    return *static_cast<TlsConnection*>(conn);
}

// False when nothing will come any more.
bool receive(TlsConnection& conn, char* buf, size_t len, size_t* got) {
    const TlsCallbacks& owner = *conn.getCallbacks();
    if (owner.readFunc != nullptr) return owner.readFunc(conn.getUserContext(), buf, len, got) != 0;
    if (conn.getReceivedBytes(buf, len, got) != QxciErrOK) *got = 0;
    return true;
}

}  // namespace

const a_qxci_conn_callbacks tls_conn_callbacks = {
    .read_cb = QXCI_ReadCallback,
    .write_cb = QXCI_WriteCallback,
    .log_cb = QXCI_ConnLogCallback,
    .blocked_io_complete_cb = nullptr,
    .check_client_cert_cb = nullptr,
};

a_qxci_io_result QXCI_ReadCallback(void* conn, unsigned char* buf, unsigned len, unsigned* got) {
    *got = 0;
    size_t count = 0;
    if (!receive(connection_of(conn), reinterpret_cast<char*>(buf), len, &count))
        return QXCI_IO_ERROR;
    *got = static_cast<unsigned>(count);
    // An owner does not say whether the peer is slow or gone, so the end looks like a wait.
    return count > 0 ? QXCI_IO_OK : QXCI_IO_WOULD_BLOCK;
}

a_qxci_io_result QXCI_WriteCallback(void* conn, const unsigned char* data, unsigned len) {
    const TlsConnection& connection = connection_of(conn);
    const size_t sent = connection.getCallbacks()->writeFunc(
        connection.getUserContext(), reinterpret_cast<const char*>(data), len);
    // A record that has left in part can neither be repeated nor completed from here.
    return sent != 0 && sent == len ? QXCI_IO_OK : QXCI_IO_ERROR;
}

int QXCI_LogCallback(void* conn, int level, const char* text, const unsigned char*, unsigned) {
    const TlsConnection& connection = connection_of(conn);
    const TlsCallbacks& owner = *connection.getCallbacks();
    if (level >= 0 && text != nullptr && owner.debugLogFunc != nullptr)
        owner.debugLogFunc(connection.getUserContext(), text);
    return 0;
}

int QXCI_ConnLogCallback(void* conn, int level, const char* text, const unsigned char* data,
                         unsigned data_len) {
    return QXCI_LogCallback(conn, level, text, data, data_len);
}
