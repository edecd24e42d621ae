// A server that answers with arbitrary bytes, in arbitrary pieces: the client ends with a
// documented code, sends nothing that its own step does not call for, and stays inside its buffers.
//
// An input is a byte of options, a byte with the length of the pieces, and what the server says.

#include <cerrno>

#include "fuzz/smtpclient.h"

namespace {

/// Receives the input piece by piece; sometimes there is nothing yet.
class InputSocket final : public FuzzedSocket {
  public:
    InputSocket(const char* bytes, size_t size, unsigned piece)
        : _bytes(bytes), _left(size), _piece(piece % 97 + 1) {}

    using Socket::recv;
    int recv(char* buf, unsigned int len) override {
        _again = !_again;
        if (_again && _left != 0) {
            errno = EAGAIN;
            return -1;
        }
        const auto count = static_cast<unsigned>(std::min<size_t>({len, _left, _piece}));
        std::copy_n(_bytes, count, buf);
        _bytes += count;
        _left -= count;
        return static_cast<int>(count);
    }

  private:
    const char* _bytes;
    size_t _left;
    size_t _piece;
    bool _again = false;
};

size_t times(const std::string& text, const char* part) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const bool log_in = (data[0] & 1) != 0;
    const char* const attachment = (data[0] & 2) != 0 ? "/proc/sys/kernel/ostype" : nullptr;
    InputSocket socket(reinterpret_cast<const char*>(data) + 2, size - 2, data[1]);
    FuzzedClient client(socket);
    if (client.start("ann@a.test", nullptr, log_in ? "user" : nullptr, "password")) {
        const char* to[] = {"bob@b.test", "eve@e.test"};
        size_t accepted = 0;
        for (int i = 0; i < 3; ++i) {
            const int result = client.SendMessage("subject", ".\r\n", to, 2, nullptr, 0, nullptr, 0,
                                                  attachment, nullptr);
            check(result == SMTP_OK || result == SMTP_RECIPIENT_REFUSED ||
                  result == SMTP_BAD_REPLY);
            accepted += result == SMTP_OK;
        }
        check(times(socket.sent, "MAIL FROM:<ann@a.test>\r\n") == 3);
        check(times(socket.sent, "RSET\r\n") == 3 - accepted);
        check(times(socket.sent, "\r\n.\r\n") >= accepted);
        check(times(socket.sent, "DATA\r\n") >= times(socket.sent, "\r\n.\r\n"));
    }
    client.Disconnect();
    check(socket.sent.size() >= 6 && socket.sent.substr(socket.sent.size() - 6) == "QUIT\r\n");
    return 0;
}
