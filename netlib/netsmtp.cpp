#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include <unistd.h>

#include "netlib/ipaddress.h"
#include "netlib/netsmtp_buffers.h"
#include "netlib/netutil.h"
#include "netlib/socketstream.h"

namespace {

int32 in_milliseconds(int seconds) {
    constexpr int32 most = std::numeric_limits<int32>::max() / 1000;
    return std::clamp<int32>(seconds, -most, most) * 1000;
}

}  // namespace

// The time-outs of a TimedSocket need a non-blocking socket, which only the base can make it.
SMTPClient::SMTPClient() : _socket(SOCK_TCP, false) {
    _socket.Socket::set_blocking_state(false);
}

SMTPClient::~SMTPClient() {
    // The streams first, as they use the socket that is closed next.
    _istrm.reset();
    _ostrm.reset();
    SMTPClient::_Shutdown();
}

int SMTPClient::Connect(const char* sender, const char* sender_name, const char* host, int port,
                        int timeout, const char* user, const char* password) {
    _socket.setTimeout(in_milliseconds(timeout));
    IPAddress address;
    if (!TcpUtil::Resolve(host, address, TcpUtil::ADDR_BOTH)) return SMTP_UNKNOWN_HOST;
    address.setPortNumber(static_cast<uint16>(port));
    int result = _ConnectSocket(address);
    if (result == SMTP_NOT_CONNECTED) return result;  // there is nothing to shut down
    if (result == SMTP_OK) result = _Expect(REPLY_SERVICE_READY);
    if (result != SMTP_OK) {
        _Shutdown();
        return result;
    }
    result = _Introduce(sender, sender_name, timeout, SMTP_BAD_REPLY);
    if (result == SMTP_OK) result = _LogIn(user, password, SMTP_BAD_REPLY);
    if (result != SMTP_OK) Disconnect();
    return result;
}

int SMTPClient::_ConnectSocket(const IPAddress& address) {
    if (address.isIPv6()) {
        _socket.close();
        // The one that was made with the client can only reach IPv4 addresses.
        if (!_socket.init(SOCK_TCP, true)) return SMTP_NOT_CONNECTED;
        _socket.Socket::set_blocking_state(false);
    }
    if (_socket.connect(address) == -1) return SMTP_NOT_CONNECTED;
    // Kept: this leaves Nagle's algorithm on. Whole commands do not wait under it, and the last
    // segment of a message is pushed.
    _socket.set_Nagle_algorithm(false);
    _istrm.reset(new (std::nothrow) SockIStream(_socket, &_heap));
    _ostrm.reset(new (std::nothrow) SockOStream(_socket));
    const a_bool there = _istrm != nullptr && !_istrm->eof() && _ostrm != nullptr;
    return there ? SMTP_OK : SMTP_NO_MEMORY;
}

int SMTPClient::_Expect(int expected, int unexpected) {
    a_reply reply;
    const int result = _ProcessResponse(reply, false);
    return reply.judged(result, expected, unexpected);
}

int SMTPClient::_Say(const char* line, int expected, int unexpected) {
    const int result = _SendLine(line);
    return result == SMTP_OK ? _Expect(expected, unexpected) : result;
}

void SMTPClient::_SayAnyway(const char* line) {
    a_reply ignored;
    if (_SendLine(line) == SMTP_OK) _ProcessResponse(ignored, false);
}

int SMTPClient::_Introduce(const char* sender, const char* sender_name, int timeout,
                           int unexpected) {
    a_reply reply;
    const int result = _SMTPConnect(reply, sender, sender_name, timeout);
    return reply.judged(result, REPLY_COMPLETED, unexpected);
}

int SMTPClient::_LogIn(const char* user, const char* password, int unexpected) {
    a_reply reply;
    const int result = _SMTPAuthenticate(reply, user, password);
    return reply.judged(result, REPLY_AUTHENTICATED, unexpected);
}

int SMTPClient::_SMTPConnect(a_reply& reply, const char* sender, const char* sender_name,
                             int timeout) {
    _sender = ut_try_text(sender);
    if (_sender == nullptr) return SMTP_NO_MEMORY;
    _sender_name = ut_try_text(sender_name);
    if (sender_name != nullptr && _sender_name == nullptr) return SMTP_NO_MEMORY;
    _timeout = timeout;

    // The name as the host has it: looking up its domain could wait for a name server.
    char host_name[256];
    const a_bool named = gethostname(host_name, sizeof host_name) == 0;
    // gethostname(2) need not terminate a name that it had to cut.
    host_name[sizeof host_name - 1] = '\0';
    const int result = _SendCommand({"EHLO ", named ? host_name : "localhost"});
    return result == SMTP_OK ? _ProcessResponse(reply, true) : result;
}

void SMTPClient::Disconnect() {
    _SayAnyway("QUIT\r\n");
    _Shutdown();
}

void SMTPClient::_Shutdown() {
    if (_shutdown) return;
    _socket.shutdown(SHUTDOWN_BOTH);
    _socket.close();
    _shutdown = true;
}

int SMTPClient::_SendCommand(std::initializer_list<const char*> parts) {
    constexpr size_t usual_length = 127;
    Buffer line;
    line.expect(usual_length);
    line.append_all(parts);
    return _SendLine(line);
}

int SMTPClient::_SendLine(Buffer& line) {
    line.append("\r\n");
    return line.is_whole() ? _SendLine(line.c_str()) : SMTP_NO_MEMORY;
}

int SMTPClient::_SendLine(const char* line) {
    const size_t length = std::strlen(line);
    return _sendData(line, length) == length ? SMTP_OK : SMTP_BAD_REPLY;
}

size_t SMTPClient::_sendData(const char* data, size_t len) {
    constexpr auto failed = static_cast<size_t>(-1);
    // Behind a gap the server would take the rest of a message for commands.
    if (_write_failed || _ostrm == nullptr) return failed;
    const size_t written = _ostrm->put(data, len);
    if (written != len) _write_failed = true;
    return written;
}

size_t SMTPClient::_recvData(char* data, size_t len) {
    return _istrm == nullptr ? 0 : _istrm->get(data, len);
}
