#include "host/worker/framesocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>

namespace host {

namespace {

iovec part_of(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

// Forgets the first `count` bytes of all parts together.
void advance(iovec*& parts, std::size_t& parts_left, std::size_t count) {
    while (parts_left > 0 && count >= parts->iov_len) {
        count -= parts->iov_len;
        ++parts;
        --parts_left;
    }
    if (parts_left == 0) return;
    parts->iov_base = static_cast<char*>(parts->iov_base) + count;
    parts->iov_len -= count;
}

}  // namespace

// The other side would wait for the rest of a frame that cannot be sent.
bool FrameSocket::_leave() {
    shutdown(_descriptor, SHUT_WR);
    return false;
}

bool FrameSocket::_send_all(iovec* parts, std::size_t count) {
    const int flags = MSG_NOSIGNAL | (_wait ? MSG_DONTWAIT : 0);
    while (count > 0) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(_descriptor, &message, flags);
        if (sent >= 0)
            advance(parts, count, static_cast<std::size_t>(sent));
        else if (errno == EAGAIN ? !_wait || !_wait(POLLOUT) : errno != EINTR)
            return _leave();
    }
    return true;
}

bool FrameSocket::send(const Frame& frame) {
    const FrameHeader header = header_of(frame);
    iovec parts[] = {part_of(_held), part_of({header.data(), header.size()}),
                     part_of(frame.payload)};
    const bool sent = _send_all(parts, std::size(parts));
    _held.clear();
    return sent;
}

bool FrameSocket::hold(const Frame& frame) {
    const FrameHeader header = header_of(frame);
    if (_held.size() + header.size() + frame.payload.size() > longest_held) return send(frame);
    _held.append(header.data(), header.size()).append(frame.payload);
    return true;
}

// Some bytes, `most` at most.
FrameSocket::Received FrameSocket::_read(char* bytes, std::size_t most, std::size_t& count) {
    ssize_t got = -1;
    const auto arrives = [&] {
        got = recv(_descriptor, bytes, most, MSG_DONTWAIT);
        return got >= 0 || (errno != EAGAIN && errno != EINTR);
    };
    while (!arrives() && !_spin.until(arrives)) {
        pollfd socket{_descriptor, POLLIN, 0};
        if (_wait ? !_wait(POLLIN) : poll(&socket, 1, -1) < 0 && errno != EINTR)
            return Received::GaveUp;
    }
    count = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    return got > 0 ? Received::Frame : Received::End;
}

FrameSocket::Received FrameSocket::_fill(char* bytes, std::size_t count) {
    Received received = Received::Frame;
    while (count > 0 && received == Received::Frame) {
        std::size_t got = std::min(count, _ahead_end - _ahead_begin);
        if (got > 0) {
            memcpy(bytes, &_ahead[_ahead_begin], got);
            _ahead_begin += got;
        } else if (count >= _ahead.size()) {
            received = _read(bytes, count, got);
        } else {
            _ahead_begin = _ahead_end = 0;
            received = _read(_ahead.data(), _ahead.size(), _ahead_end);
        }
        bytes += got;
        count -= got;
    }
    return received;
}

FrameSocket::Received FrameSocket::receive(Frame& frame) {
    FrameHeader header;
    std::uint32_t length = 0;
    const Received received = _fill(header.data(), header.size());
    if (received != Received::Frame) return received;
    if (!read_header(header, _other_side, frame, length)) return Received::Broken;
    if (length == 0) return received;
    frame.payload = {_payload.data(), length};
    _used = std::max<std::size_t>(_used, length);
    return _fill(_payload.data(), length);
}

FrameSocket::Received FrameSocket::receive_if_there(Frame& frame) {
    if (_ahead_begin == _ahead_end) {
        const ssize_t got = recv(_descriptor, _ahead.data(), _ahead.size(), MSG_DONTWAIT);
        if (got < 0) return errno == EAGAIN ? Received::Nothing : Received::End;
        _ahead_begin = 0;
        _ahead_end = static_cast<std::size_t>(got);
    }
    return _ahead_begin < _ahead_end ? receive(frame) : Received::End;
}

// What was read ahead and not received yet stays.
void FrameSocket::forget() {
    explicit_bzero(_payload.data(), _used);
    explicit_bzero(_ahead.data(), _ahead_begin);
    explicit_bzero(_ahead.data() + _ahead_end, _ahead.size() - _ahead_end);
    _used = 0;
}

}  // namespace host
