#ifndef QUOREL_NETLIB_SELECTLIST_H
#define QUOREL_NETLIB_SELECTLIST_H

#include "netlib/netsocket.h"

/// Waits on several sockets at once.
///
/// The lists hold copies of the sockets given, which share their descriptors and which this object
/// owns; it never closes a descriptor. A select leaves exactly the ready sockets in the read and
/// write lists, so the lists are filled anew before the next one.
///
/// Threads: one object is used by one thread at a time.
class SelectList {
  public:
    SelectList() = default;
    SelectList(const SelectList&) = delete;
    SelectList& operator=(const SelectList&) = delete;
    ~SelectList() { clear(); }

    void addReadSocket(const Socket& socket) { _read_list.append(new Socket(socket)); }
    void addWriteSocket(const Socket& socket) { _write_list.append(new Socket(socket)); }

    /// Each removes every entry with the socket's descriptor, which may be closed by then: from one
    /// list, or from all three.
    void removeReadSocket(const Socket& socket) { _remove(_read_list, socket); }
    void removeWriteSocket(const Socket& socket) { _remove(_write_list, socket); }
    void removeSocket(const Socket& socket);

    void clearReadSockets() { _read_list.delete_all(); }
    void clearWriteSockets() { _write_list.delete_all(); }
    void clear();

    /// `wait_fn`(ms) replaces the system's waiting: it waits up to that many milliseconds and
    /// returns whether to go on. Null goes back to the system's.
    void setWaitFunction(a_bool (*wait_fn)(uint32)) { _wait_fn = wait_fn; }

    /// Waits until a socket is ready or the time has passed, in whole milliseconds. Returns the
    /// number of sockets that are ready or have an error, the latter moved to the end of the error
    /// list: one has an error pending, or a descriptor that is no longer open. -1 with errno leaves
    /// the lists unchanged; EBADF says that a socket was closed when it was added.
    /// Kept: a hang-up alone, as of a socket that was never connected, is counted and its entry
    /// dropped.
    int select_us(uint32 timeout_us) { return _select(timeout_us / 1000); }
    int select(uint32 timeout_ms) { return _select(timeout_ms); }

    /// The lists remain this object's.
    Socket_list& getReadList() { return _read_list; }
    Socket_list& getWriteList() { return _write_list; }
    Socket_list& getErrorList() { return _error_list; }

  private:
    static void _remove(Socket_list& list, const Socket& socket);
    int _select(uint32 timeout_ms);
    int _poll(pollfd* fds, nfds_t count, uint32 timeout_ms) const;
    const pollfd* _keep_ready(Socket_list& list, short wanted, const pollfd* result);

    Socket_list _read_list;
    Socket_list _write_list;
    Socket_list _error_list;
    a_bool (*_wait_fn)(uint32) = nullptr;
};

#endif
