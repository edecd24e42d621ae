// One message on its way: RFC 5321, section 3.3, and the attachment as a section of RFC 2046.
//
// What the server sees is fixed to the byte; how it is cut into segments is this file's choice. The
// text, the attachment and the closing dot are joined into large writes, and the last segment is
// pushed, for under Nagle's algorithm it would otherwise wait for a delayed acknowledgement.

#include <algorithm>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "netlib/netsmtp.h"
#include "utils/etc/base64.h"
#include "utils/etc/utstreambuffer.h"
#include "utils/unix/posixio.h"
#include "utils/unix/posixstream.h"

namespace {

constexpr size_t block_size = size_t{64} * 1024;  // of reads, of encoding and of writes
constexpr uint16 base64_line_length = 76;         // RFC 2045, section 6.8
constexpr size_t longest_attachment_name = 255;

a_bool means_refused(int code) {
    return code == REPLY_MAILBOX_UNAVAILABLE || code == REPLY_USER_NOT_LOCAL ||
           code == REPLY_MAILBOX_NAME_NOT_ALLOWED;
}

// Never waits, as opening a FIFO would, takes a directory for an empty file, or reads a device that
// never ends.
a_bool open_attachment(PosixIStream& file, const char* path) {
    if (_posix_access(path, R_OK) != 0) return false;
    a_posix_statbuf status;
    if (_posix_stat(path, &status) != 0) return false;
    if (!S_ISREG(status.pst_mode)) return false;
    return file.open(path, O_RDONLY | O_NONBLOCK, 0);
}

const char* make_boundary(char* buf, size_t buflen) {
    const std::time_t now = std::time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    std::strftime(buf, buflen, "==_EMAIL_MIME_%Y_%m%d_%H%M%S_==", &local);
    return buf;
}

UTText attachment_name(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    const char* const name = slash == nullptr ? path : slash + 1;
    return UTText(UTHeap().Strndup(name, longest_attachment_name));
}

const char* find(const char* from, const char* end, char wanted) {
    const auto length = static_cast<size_t>(end - from);
    return static_cast<const char*>(std::memchr(from, wanted, length));
}

// A file that ends early once nobody listens any more.
class UsefulIStream final : public UTIStream {
  public:
    UsefulIStream(UTIStream& file, const a_bool& useless) : _file(file), _useless(useless) {}
    size_t do_get(a_byte* buf, size_t n) override { return _useless ? 0 : _file.get(buf, n); }

  private:
    UTIStream& _file;
    const a_bool& _useless;
};

}  // namespace

/// Output into the text of the message, dots doubled.
class SMTPClient::SMTPClientOStream final : public UTOStream {
  public:
    explicit SMTPClientOStream(SMTPClient* client) : _client(client) {}

    /// Kept: returns 0 whatever happens; callers do not look at the count.
    size_t do_put(const a_byte* data, size_t n) override {
        a_bool ignored = false;
        return static_cast<size_t>(
            _client->_SendRawText(reinterpret_cast<const char*>(data), n, &ignored));
    }

  private:
    SMTPClient* _client;  // not owned
};

/// Writes to the connection until a write fails, and then no more: the rest of a message would only
/// run into the same time-out, block by block.
class SMTPClient::GuardedOStream final : public UTOStream {
  public:
    GuardedOStream(UTOStream& connection, a_bool& failed)
        : _connection(connection), _failed(failed) {}

    size_t do_put(const a_byte* data, size_t n) override {
        constexpr auto failed = static_cast<size_t>(-1);
        for (size_t done = 0; done < n && !_failed;) {
            const size_t written = _connection.put(data + done, n - done);
            _failed = written == failed || written == 0;
            if (!_failed) done += written;
        }
        return _failed ? failed : n;
    }

  private:
    UTOStream& _connection;
    a_bool& _failed;
};

/// While it lives, what the client sends is collected and leaves in large writes.
class SMTPClient::JoinedWrites {
  public:
    explicit JoinedWrites(SMTPClient& client)
        : _slot(client._ostrm), _connection(std::move(client._ostrm)),
          _guard(*_connection, client._write_failed) {
        _slot = std::make_unique<UTOStreamBuffer>(_guard, block_size);
    }
    ~JoinedWrites() {
        _slot.reset();  // which writes the rest
        _slot = std::move(_connection);
    }
    JoinedWrites(const JoinedWrites&) = delete;
    JoinedWrites& operator=(const JoinedWrites&) = delete;

  private:
    std::unique_ptr<UTOStream>& _slot;
    std::unique_ptr<UTOStream> _connection;
    GuardedOStream _guard;
};

int SMTPClient::SendMessage(const char* subject, const char* body, const char** to, int to_count,
                            const char** cc, int cc_count, const char** bcc, int bcc_count,
                            const char* attachment, const char* content_type) {
    PosixIStream file;
    char boundary_text[40];
    const char* boundary = nullptr;
    if (attachment != nullptr) {
        if (!open_attachment(file, attachment)) return _Abandon(SMTP_BAD_ATTACHMENT);
        boundary = make_boundary(boundary_text, sizeof boundary_text);
    }
    const UTText text(
        _ComposeMessage(subject, body, to, to_count, cc, cc_count, boundary, content_type));
    if (text == nullptr) return SMTP_NO_MEMORY;

    const char** const lists[] = {to, cc, bcc};
    const int counts[] = {to_count, cc_count, bcc_count};
    int result = _SendEnvelope(lists, counts);
    if (result == SMTP_OK) result = _SendContent(text.get(), boundary, attachment, file);
    return result == SMTP_OK ? result : _Abandon(result);
}

int SMTPClient::_SendEnvelope(const char** const lists[], const int counts[]) {
    // Nothing goes out any more, so that there is no answer to wait for.
    if (_write_failed) return SMTP_BAD_REPLY;
    _SendCommand({"MAIL FROM:<", _sender.get(), ">"});
    int result = _Expect(REPLY_COMPLETED);
    for (int list = 0; list < 3; ++list) {
        for (int i = 0; i < counts[list] && result == SMTP_OK; ++i)
            result = _SendRecipient(lists[list][i]);
    }
    if (result != SMTP_OK) return result;
    _SendCommand({"DATA"});
    return _Expect(REPLY_START_MAIL_INPUT);
}

int SMTPClient::_SendRecipient(const char* address) {
    char reply[reply_size];
    int code = 0;
    _SendCommand({"RCPT TO:<", address, ">"});
    const int result = _ProcessResponse(reply, sizeof reply, &code, false);
    if (result == SMTP_OK && code == REPLY_COMPLETED) return SMTP_OK;
    // A refusal counts even if its reply breaks off after the first line.
    if (means_refused(code)) return SMTP_RECIPIENT_REFUSED;
    return result == SMTP_OK ? SMTP_BAD_REPLY : result;
}

int SMTPClient::_SendContent(const char* text, const char* boundary, const char* path,
                             UTIStream& file) {
    {
        const JoinedWrites joined(*this);
        a_bool open_line = false;
        _SendRawText(text, std::strlen(text), &open_line);
        if (path != nullptr) {
            _SendMessageAttachments(boundary, path, file);
        } else if (open_line) {
            _sendData("\r\n", 2);
        }
        _sendData(".\r\n", 3);
    }
    _PushLastSegment();
    const int result = _Expect(REPLY_COMPLETED);
    // A server that accepts what did not reach it whole has not accepted this message.
    return result == SMTP_OK && _write_failed ? SMTP_BAD_REPLY : result;
}

// Linux sends what it holds back when the option is set (tcp(7)), and queued data stays exempt from
// Nagle's algorithm when it is cleared again.
void SMTPClient::_PushLastSegment() {
    if (_write_failed) return;
    _socket.set_Nagle_algorithm(true);
    _socket.set_Nagle_algorithm(false);
}

int SMTPClient::_Abandon(int result) {
    char reply[reply_size];
    int ignored = 0;
    if (_SendCommand({"RSET"})) _ProcessResponse(reply, sizeof reply, &ignored, false);
    return result;
}

int SMTPClient::_SendRawText(const char* text, size_t len, a_bool* open_line) {
    if (len == 0) return 0;
    const char* const end = text + len;
    const char* pending = text;
    const char* from = text;
    a_bool zero = false;  // ends the search
    while (const char* const dot = find(from, end, '.')) {
        zero = find(from, dot, '\0') != nullptr;
        if (zero) break;
        from = dot + 1;
        if (dot != text && dot[-1] != '\n') continue;
        if (dot != pending) _sendData(pending, static_cast<size_t>(dot - pending));
        _sendData(".", 1);
        pending = dot;
    }
    _sendData(pending, static_cast<size_t>(end - pending));
    // Encoded blocks seldom end with a line, which spares them the search.
    *open_line = end[-1] != '\n' || zero || find(from, end, '\0') != nullptr;
    return 0;
}

void SMTPClient::_SendText(const Buffer& text) {
    a_bool ignored = false;
    _SendRawText(text.c_str(), text.length(), &ignored);
}

int SMTPClient::_SendMessageAttachments(const char* boundary, const char* path, UTIStream& file) {
    if (boundary == nullptr || path == nullptr) return SMTP_OK;
    const UTText name = attachment_name(path);
    Buffer header;
    // Kept: "Content-transfer-encoding" in this mixture of cases.
    header.append_all(
        {"\r\n\r\n--", boundary, "\r\nContent-Type: application/octet-stream; name=\"", name.get(),
         "\"\r\nContent-transfer-encoding: base64\r\nContent-Disposition: attachment; filename=\"",
         name.get(), "\"\r\n\r\n"});
    _SendText(header);
    {
        // Kept: a read error ends the attachment like the end of the file.
        UsefulIStream useful(file, _write_failed);
        SMTPClientOStream content(this);
        UTIStreamBuffer blocks(useful, block_size);
        UTOStreamBuffer lines(content, block_size);
        base64_encode(lines, blocks, base64_line_length, true);
    }
    Buffer closing;
    closing.append_all({"\r\n\r\n--", boundary, "--\r\n\r\n", "\r\n"});
    _SendText(closing);
    return SMTP_OK;
}
