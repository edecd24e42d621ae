#include <new>

#include "providers/openssl/tlsconn.h"

namespace {

void destroy(QXCIStreamConnH handle) {
    if (handle == nullptr) return;
    TlsConn* const conn = TlsConn::of(handle);
    const OwnerMemory& memory = conn->memory();
    conn->~TlsConn();
    memory.free(conn);
}

TlsConn* make(TlsStream& stream, const a_qxci_conn_callbacks* callbacks, void* user_data,
              ErrorRecord& error) {
    const bool usable =
        callbacks != nullptr && callbacks->read_cb != nullptr && callbacks->write_cb != nullptr;
    void* const place =
        stream.ready() && usable ? stream.env.memory.alloc(sizeof(TlsConn)) : nullptr;
    if (place != nullptr) return new (place) TlsConn(stream, *callbacks, user_data);
    error.fail(stream.ready() && usable ? QxciErrNoMemory : QxciErrInitError);
    return nullptr;
}

QXCIStreamConnH create(QXCIStreamH stream, const a_qxci_conn_callbacks* callbacks,
                       a_qxci_user_option* options, void* user_data, a_qxci_error* error) {
    ErrorRecord reason(TlsStream::of(stream)->env.memory);
    TlsConn* const conn = make(*TlsStream::of(stream), callbacks, user_data, reason);
    if (conn == nullptr) {
        reason.give_to(error);
        return nullptr;
    }
    if (conn->init(options)) return conn->handle();
    conn->error.give_to(error);
    destroy(conn->handle());
    return nullptr;
}

a_qxci_io_result read(QXCIStreamConnH conn, a_qxci_byte* buf, size_t len, size_t* got) {
    return TlsConn::of(conn)->read(buf, len, got);
}

a_qxci_io_result write(QXCIStreamConnH conn, const a_qxci_byte* data, size_t len) {
    return TlsConn::of(conn)->write(data, len);
}

a_qxci_io_result flush_writes(QXCIStreamConnH conn) {
    return TlsConn::of(conn)->flush_writes();
}

const a_qxci_error* last_error(QXCIStreamConnH conn) {
    return TlsConn::of(conn)->error.get();
}

}  // namespace

const a_qxci_conn_iface conn_iface = {
    .create_func = create,
    .read_func = read,
    .write_func = write,
    .flush_writes_func = flush_writes,
    .get_last_error_func = last_error,
    .destroy_func = destroy,
};
