#ifndef QUOREL_PROVIDERS_STUB_QXCISTUB_H
#define QUOREL_PROVIDERS_STUB_QXCISTUB_H

/* The stub provider, libqxcistub_r.so. IT PROTECTS NOTHING: plain text travels as plain text, and
 * its hashes, ciphers and signatures are worthless. It is for tests and for trying things out, when
 * one wants to see what a connection carries, and to make it succeed, wait and fail at will.
 *
 * It is a provider in the sense of kovcert/qxci/qxci.h. It knows all of the algorithms that are
 * named or numbered there, under their usual names, and gives results of their sizes, so that it
 * can stand in for any provider.
 *
 * Connections: what is on the wire
 *
 *   A record is a header line of QXCI_STUB_HEADER_SIZE bytes and then a payload:
 *
 *       "QXCI-STUB " kind " " length "\n" payload
 *
 *   `kind` is one of the three below and has five letters, `length` is that of the payload, five
 *   decimal digits from 00000 to QXCI_STUB_MAX_PAYLOAD.
 *
 *   The client begins with HELLO and the payload "client\n", followed by a line "name=value\n" for
 *   each of its connection options (but "stub_script"), in the order in which they were given: the
 *   server sees what the client was told. The server answers with HELLO and the payload "server\n".
 *   More lines in either payload mean nothing to the receiver.
 *
 *   Then both send any number of DATA, and CLOSE, without a payload, when they destroy the
 *   connection. Without a CLOSE a connection has ended abruptly.
 *
 *       C: QXCI-STUB HELLO 00034\nclient\ncertificate_name=localhost\n
 *       S: QXCI-STUB HELLO 00007\nserver\n
 *       C: QXCI-STUB DATA_ 00006\nQUIT\r\n
 *       C: QXCI-STUB CLOSE 00000\n
 *
 *   The creation of a connection goes through the handshake until it would have to wait; reads and
 *   writes take it up from there. A write becomes one DATA and one call of write_cb for each
 *   QXCI_STUB_MAX_PAYLOAD bytes. Nothing is read from read_cb that does not belong to the record at
 *   hand.
 *
 *   Failures: QxciErrIOError when write_cb or read_cb fails; QxciErrConnectionClosed when read_cb
 *   had nothing QXCI_STUB_MAX_EMPTY_READS times on end (it pauses for a millisecond from the second
 *   time on); QxciErrHandshakeFailed for anything but the HELLO that is due, and QxciErrIOError,
 *   with EPROTO, for anything but a DATA or CLOSE later. A connection that failed so keeps failing.
 *
 * Options
 *
 *   "stub_script", see below, in every list of options. Streams and connections accept all options
 *   that qxci.h names, and do nothing about them. Encrypters accept "iv" and do nothing about it.
 *   Signature handlers demand "stub_key", any text, with which they sign and verify.
 *
 * Scripts
 *
 *   A script tells what is to happen in place of the usual:
 *
 *       script    = step { ";" step }
 *       step      = operation [ "*" [ count ] ] " " outcome
 *
 *   The steps of an operation are for its first, second, ... call on an object. "*3" is a step for
 *   three calls, "*" one for all that follow. When its steps are used up, an operation does as
 *   usual. Blanks around a step are ignored.
 *
 *       operation   what it is                             outcomes
 *       env         creation of an environment             ok fail
 *       object      creation of a hasher, password hasher, ok fail
 *                   encrypter or signature handler
 *       work        any operation of these                 ok fail
 *       stream      creation of a stream                   ok fail
 *       init        its init_func                          ok fail
 *       conn        creation of a connection, before the   ok fail
 *                   handshake
 *       handshake   one attempt to go on with the          ok fail done block close
 *                   handshake, which creation makes once
 *                   and every read and write while there
 *                   is something left to do
 *       read        read_func, the handshake being done    ok fail block close give max
 *       write       write_func, likewise                   ok fail block close done max
 *       flush       flush_writes_func                      ok fail block close done
 *       destroy     destroy_func of a connection           ok done
 *
 *       outcome
 *       ok          as usual
 *       fail code,system,parm,...
 *                   an error with this code, system code and any number of parameters: "fail 8",
 *                   "fail 13,0,Acme Ltd", "fail 26,2,a.so,a.so"
 *       done        success, without a byte sent or received; for destroy: no CLOSE
 *       block       QXCI_IO_WOULD_BLOCK, nothing done. A connection is created all the same and
 *                   goes on with the handshake later.
 *       close       QXCI_IO_GRACEFUL_CLOSE, nothing done; QxciErrConnectionClosed in the part of
 *                   the handshake that creation makes
 *       give text   reads `text`, which ends at the next ";", as far as there is room, without a
 *                   byte received; "\r" and "\n" in it stand for the end of a line
 *       max n       reads at most n bytes; writes at most n and, if there are more, remembers
 *                   those as taken and ends with QXCI_IO_WOULD_BLOCK
 *
 *   For example "handshake*2 block; handshake done; write*5 block; read give 220 ok; read* close".
 *
 *   The script of a connection is the option "stub_script" among its own options, else that of its
 *   stream, else that of the environment, else the one that QXCIStubScript has set. Other objects
 *   likewise. A script that is not well formed is QxciErrOptionError, "stub_script".
 *
 * Threads: as qxci.h says. QXCIStubScript may be called at any time on any thread.
 */

#include "kovcert/qxci/qxci.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QXCI_STUB_FILE "libqxcistub_r.so"

/* For printf: the kind and the length, an unsigned. */
#define QXCI_STUB_HEADER_FORMAT "QXCI-STUB %s %05u\n"
#define QXCI_STUB_HELLO "HELLO"
#define QXCI_STUB_DATA "DATA_"
#define QXCI_STUB_CLOSE "CLOSE"

enum {
    QXCI_STUB_HEADER_SIZE = 22,
    QXCI_STUB_MAX_PAYLOAD = 16384,
    QXCI_STUB_MAX_EMPTY_READS = 200,
    QXCI_STUB_MAX_SCRIPT = 4095 /* bytes in a script for QXCIStubScript */
};

/* An algorithm number of its own, for streams that nobody takes for TLS; the name is "stub". */
enum { QXCI_STREAM_STUB = 200 };

/* Sets the script of the whole process, for objects without one of their own; null or empty: none.
 * Objects that exist already play it from its start on. Returns false, and changes nothing, when
 * the script is too long or not well formed. To be looked up with dlsym(library, "QXCIStubScript")
 * in the library that the owner has loaded. */
typedef bool (*a_qxci_stub_script_func)(const char* script);
QXCI_EXPORT bool QXCIStubScript(const char* script);

#ifdef __cplusplus
}
#endif

#endif
