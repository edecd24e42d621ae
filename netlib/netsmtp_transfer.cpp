// One message on its way: RFC 5321, section 3.3, and the attachment as a section of RFC 2046.
//
// What the server sees is fixed to the byte; how it is cut into segments is this file's choice. The
// text, the attachment and the closing dot are joined into large writes, and the last segment is
// pushed, for under Nagle's algorithm it would otherwise wait for a delayed acknowledgement.

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>

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
constexpr int longest_attachment_name = 255;

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

const char* attachment_name(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
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

/// What the client sends between begin() and end() is collected and leaves in large writes. Made
/// before the message is begun, since that cannot be broken off for want of memory.
class SMTPClient::JoinedWrites {
  public:
    explicit JoinedWrites(SMTPClient& client)
        : _slot(client._ostrm), _guard(*client._ostrm, client._write_failed),
          _buffer(new (std::nothrow) UTOStreamBuffer(_guard, block_size)) {}
    JoinedWrites(const JoinedWrites&) = delete;
    JoinedWrites& operator=(const JoinedWrites&) = delete;

    a_bool is_valid() const { return _buffer != nullptr && !_buffer->eof(); }
    void begin() { _slot.swap(_buffer); }
    void end() {
        _slot.swap(_buffer);
        _buffer.reset();  // which writes the rest
    }

  private:
    std::unique_ptr<UTOStream>& _slot;
    GuardedOStream _guard;
    std::unique_ptr<UTOStream> _buffer;  // while begun, the connection
};

/// The contents of a file on their way into the message, block by block. Made like JoinedWrites.
class SMTPClient::AttachmentBlocks {
  public:
    AttachmentBlocks(SMTPClient* client, UTIStream& file)
        : _useful(file, client->_write_failed), _content(client), _file(_useful, block_size),
          _text(_content, block_size) {}

    a_bool is_valid() const { return !_file.eof() && !_text.eof(); }
    void encode() {
        base64_encode(_text, _file, base64_line_length, true);
        _text.flush();
    }

  private:
    UsefulIStream _useful;
    SMTPClientOStream _content;
    UTIStreamBuffer _file;
    UTOStreamBuffer _text;
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
    if (_ostrm == nullptr) return SMTP_BAD_REPLY;
    JoinedWrites joined(*this);
    std::optional<AttachmentBlocks> contents;
    if (attachment != nullptr) contents.emplace(this, file);
    if (!joined.is_valid() || (contents && !contents->is_valid())) return SMTP_NO_MEMORY;

    const char** const lists[] = {to, cc, bcc};
    const int counts[] = {to_count, cc_count, bcc_count};
    int result = _SendEnvelope(lists, counts);
    if (result == SMTP_OK) {
        result =
            _SendContent(joined, text.get(), boundary, attachment, contents ? &*contents : nullptr);
    }
    return result == SMTP_OK ? result : _Abandon(result);
}

int SMTPClient::_SendEnvelope(const char** const lists[], const int counts[]) {
    int result = _SendCommand({"MAIL FROM:<", _sender.get(), ">"});
    if (result == SMTP_OK) result = _Expect(REPLY_COMPLETED);
    for (int list = 0; list < 3; ++list) {
        for (int i = 0; i < counts[list] && result == SMTP_OK; ++i)
            result = _SendRecipient(lists[list][i]);
    }
    return result == SMTP_OK ? _Say("DATA\r\n", REPLY_START_MAIL_INPUT) : result;
}

int SMTPClient::_SendRecipient(const char* address) {
    char reply[reply_size];
    int code = 0;
    int result = _SendCommand({"RCPT TO:<", address, ">"});
    if (result == SMTP_OK) result = _ProcessResponse(reply, sizeof reply, &code, false);
    if (result == SMTP_OK && code == REPLY_COMPLETED) return SMTP_OK;
    // A refusal counts even if its reply breaks off after the first line.
    if (means_refused(code)) return SMTP_RECIPIENT_REFUSED;
    return result == SMTP_OK ? SMTP_BAD_REPLY : result;
}

int SMTPClient::_SendContent(JoinedWrites& joined, const char* text, const char* boundary,
                             const char* path, AttachmentBlocks* contents) {
    joined.begin();
    a_bool open_line = false;
    _SendRawText(text, std::strlen(text), &open_line);
    if (contents != nullptr) {
        _SendMessageAttachments(boundary, path, *contents);
    } else if (open_line) {
        _sendData("\r\n", 2);
    }
    _sendData(".\r\n", 3);
    joined.end();
    _PushLastSegment();
    // Without a time-out nothing would end the wait for an answer that may never come.
    if (_write_failed && !_socket.hasTimeout()) return SMTP_BAD_REPLY;
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
    _SayAnyway("RSET\r\n");
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

void SMTPClient::_SendText(const char* text) {
    a_bool ignored = false;
    _SendRawText(text, std::strlen(text), &ignored);
}

int SMTPClient::_SendMessageAttachments(const char* boundary, const char* path,
                                        AttachmentBlocks& contents) {
    if (boundary == nullptr || path == nullptr) return SMTP_OK;
    const char* const name = attachment_name(path);
    char lines[1024];  // more than the longest boundary and two names take
    // Kept: "Content-transfer-encoding" in this mixture of cases.
    std::snprintf(lines, sizeof lines,
                  "\r\n\r\n--%s\r\nContent-Type: application/octet-stream; name=\"%.*s\"\r\n"
                  "Content-transfer-encoding: base64\r\n"
                  "Content-Disposition: attachment; filename=\"%.*s\"\r\n\r\n",
                  boundary, longest_attachment_name, name, longest_attachment_name, name);
    _SendText(lines);
    // Kept: a read error ends the attachment like the end of the file.
    contents.encode();
    std::snprintf(lines, sizeof lines, "\r\n\r\n--%s--\r\n\r\n\r\n", boundary);
    _SendText(lines);
    return SMTP_OK;
}
