#include "netlib/selectlist.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>

namespace {

nfds_t size_of(Socket_list& list) {
    nfds_t size = 0;
    for (Socket_iter iter(list); !iter.is_past(); iter.next()) ++size;
    return size;
}

pollfd* request_each(Socket_list& list, short events, pollfd* next) {
    for (Socket_iter iter(list); !iter.is_past(); iter.next())
        *next++ = {.fd = iter.get()->getSocket(), .events = events, .revents = 0};
    return next;
}

}  // namespace

void SelectList::_remove(Socket_list& list, const Socket& socket) {
    for (Socket* entry = list.get_first(); entry != nullptr;) {
        Socket* following = list.next(entry);
        if (*entry == socket) delete entry;
        entry = following;
    }
}

void SelectList::removeSocket(const Socket& socket) {
    for (Socket_list* list : {&_read_list, &_write_list, &_error_list}) _remove(*list, socket);
}

void SelectList::clear() {
    for (Socket_list* list : {&_read_list, &_write_list, &_error_list}) list->delete_all();
}

int SelectList::_select(uint32 timeout_ms) {
    const nfds_t count = size_of(_read_list) + size_of(_write_list);
    // From the heap: a host may wait on more sockets than its thread's stack has room for.
    const std::unique_ptr<pollfd[]> fds(new (std::nothrow) pollfd[count]);
    if (fds == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    pollfd* write_requests = request_each(_read_list, POLLIN | POLLERR, fds.get());
    request_each(_write_list, POLLOUT | POLLERR, write_requests);

    const int ready = _poll(fds.get(), count, timeout_ms);
    if (ready == -1) return -1;
    const pollfd* write_results = _keep_ready(_read_list, POLLIN, fds.get());
    _keep_ready(_write_list, POLLOUT, write_results);
    return ready;
}

int SelectList::_poll(pollfd* fds, nfds_t count, uint32 timeout_ms) const {
    constexpr uint32 pass_in_ms = 300;
    if (_wait_fn == nullptr)
        return unix_poll(fds, count, static_cast<int>(std::min<uint32>(timeout_ms, INT_MAX)));
    for (uint32 left_in_ms = timeout_ms;; left_in_ms -= pass_in_ms) {
        const int ready = unix_poll(fds, count, 0);
        if (ready != 0) return ready;
        if (!_wait_fn(pass_in_ms) || left_in_ms <= pass_in_ms) return 0;
    }
}

// `result` holds the poll results of `list` in order; returns the place behind them.
const pollfd* SelectList::_keep_ready(Socket_list& list, short wanted, const pollfd* result) {
    for (Socket* entry = list.get_first(); entry != nullptr; ++result) {
        Socket* following = list.next(entry);  // first, as the entry may leave the list
        if ((result->revents & (POLLERR | POLLNVAL)) != 0)
            _error_list.append(entry);
        else if ((result->revents & wanted) == 0)
            delete entry;
        entry = following;
    }
    return result;
}
