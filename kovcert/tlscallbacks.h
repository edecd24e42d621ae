#ifndef QUOREL_KOVCERT_TLSCALLBACKS_H
#define QUOREL_KOVCERT_TLSCALLBACKS_H

/// How the raw bytes of a TLS connection travel: the provider asks the TlsConnection through the
/// table tls_conn_callbacks, and that asks its owner, who has the socket, through a TlsCallbacks.
///
/// All of these run on the thread that is in a call on the connection, with its mutex held; the
/// yield alone runs without it.

#include <cstddef>

#include "kovcert/qxci/qxci.h"

/// What the owner of a TLS connection provides. `user_context` and `yield_ref` are what was passed
/// with the table.
struct TlsCallbacks {
    /// Required. Sends raw bytes, all of them if it can; returns how many, 0 or (size_t)-1 on
    /// failure.
    size_t (*writeFunc)(void* user_context, const char* data, size_t len);

    /// Receives up to `len` raw bytes. Non-zero: *got is how many, 0 when nothing is there now.
    /// Zero: nothing will come any more. Null where the owner feeds the connection through
    /// TlsConnection::receiveBytes() instead.
    int (*readFunc)(void* user_context, char* buf, size_t len, size_t* got);

    /// Takes a line for the log. May be null.
    void (*debugLogFunc)(void* user_context, const char* text);

    /// Called between the attempts of a read or write that is not done yet. Other threads may use
    /// the connection meanwhile. May be null.
    void (*yieldFunc)(void* yield_ref);
};

/// What every provider connection is created with; the user data is the TlsConnection.
extern const a_qxci_conn_callbacks tls_conn_callbacks;

// The entries of that table. `conn` is the TlsConnection.

/// Asks the readFunc, or without one takes from the bytes that were fed. Nothing read is
/// QXCI_IO_WOULD_BLOCK, whether there is nothing yet or the peer has closed.
a_qxci_io_result QXCI_ReadCallback(void* conn, unsigned char* buf, unsigned len, unsigned* got);

/// Asks the writeFunc, once. A part sent is an error like nothing sent: it never blocks halfway.
a_qxci_io_result QXCI_WriteCallback(void* conn, const unsigned char* data, unsigned len);

/// Passes `text` on unless it is null or the level negative, but not the data, which may be secret.
/// Returns 0.
int QXCI_LogCallback(void* conn, int level, const char* text, const unsigned char* data,
                     unsigned data_len);
int QXCI_ConnLogCallback(void* conn, int level, const char* text, const unsigned char* data,
                         unsigned data_len);

#endif
