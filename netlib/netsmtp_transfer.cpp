// One message on its way: RFC 5321, section 3.3, and the attachment as a section of RFC 2046.
//
// What the server sees is fixed to the byte; how it is cut into segments is this file's choice. The
// text, the attachment and the closing dot are joined into large writes, the last of which the
// socket pushes where it would wait (netlib/smtpsocket.h).

#include <charconv>
#include <cstring>
#include <ctime>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "netlib/netsmtp_buffers.h"
#include "utils/etc/utmemstream.h"
#include "utils/unix/posixio.h"
#include "utils/unix/posixstream.h"

namespace {

constexpr size_t longest_attachment_name = 255;

a_bool means_refused(int code) {
    return code == REPLY_MAILBOX_UNAVAILABLE || code == REPLY_USER_NOT_LOCAL ||
           code == REPLY_MAILBOX_NAME_NOT_ALLOWED;
}

// Never waits, as opening a FIFO would, takes a directory for an empty file, or reads a device that
// never ends.
a_bool open_attachment(PosixIStream& file, const char* path) {
    return _posix_access(path, R_OK) == 0 && file.open(path, O_RDONLY | O_NONBLOCK, 0) &&
           file.is_regular();
}

// At least two digits. The streams' << would bring floating point along, 150 KB of it.
void put_number(UTOStream& text, int number) {
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    if (number < 10) text.put("0");
    text.put(digits, static_cast<size_t>(end - digits));
}

// The local time as "%Y_%m%d_%H%M%S". strftime would look at the time zone's file each time.
const char* make_boundary(char* buf, size_t buflen) {
    const std::time_t now = std::time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    UTStrOStream text(buf, buflen);
    text.put("==_EMAIL_MIME_");
    put_number(text, local.tm_year + 1900);
    text.put("_");
    put_number(text, local.tm_mon + 1);
    put_number(text, local.tm_mday);
    text.put("_");
    for (const int part : {local.tm_hour, local.tm_min, local.tm_sec}) put_number(text, part);
    text.put("_==");
    text.set_eof();
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

}  // namespace

int SMTPClient::SendMessage(const char* subject, const char* body, const char** to, int to_count,
                            const char** cc, int cc_count, const char** bcc, int bcc_count,
                            const char* attachment, const char* content_type) {
    PosixIStream file;
    char boundary_text[96];
    const char* boundary = nullptr;
    if (attachment != nullptr) {
        if (!open_attachment(file, attachment)) return _Abandon(SMTP_BAD_ATTACHMENT);
        boundary = make_boundary(boundary_text, sizeof boundary_text);
    }
    const UTText text(
        _ComposeMessage(subject, body, to, to_count, cc, cc_count, boundary, content_type));
    if (text == nullptr) return SMTP_NO_MEMORY;
    if (_ostrm == nullptr) return SMTP_BAD_REPLY;
    if (!_MakeBuffers(attachment != nullptr ? &file : nullptr)) return SMTP_NO_MEMORY;

    int result = _SendEnvelope({{to, to_count}, {cc, cc_count}, {bcc, bcc_count}});
    if (result == SMTP_OK) result = _SendContent(text.get(), boundary, attachment, file);
    if (_contents != nullptr && !_contents->is_small()) _contents.reset();
    return result == SMTP_OK ? result : _Abandon(result);
}

/// Few sessions of many attach files, and those that attach small ones in a row are not to wait for
/// memory; so only a block for small files stays, until a message does without.
a_bool SMTPClient::_MakeBuffers(const PosixIStream* file) {
    if (_joined == nullptr) _joined.reset(new (std::nothrow) JoinedWrites(*this));
    const a_bool small = file != nullptr && AttachmentBlocks::is_small(file->size());
    if (!small) _contents.reset();
    if (file != nullptr && _contents == nullptr)
        _contents.reset(new (std::nothrow) AttachmentBlocks(*this, small));
    const a_bool made = _joined != nullptr && _joined->is_valid() &&
                        (file == nullptr || (_contents != nullptr && _contents->is_valid()));
    if (!made) _GiveBackBuffers();
    return made;
}

void SMTPClient::_GiveBackBuffers() {
    _joined.reset();
    _contents.reset();
}

int SMTPClient::_SendEnvelope(std::initializer_list<a_recipient_list> lists) {
    int result = _SendCommand({"MAIL FROM:<", _sender.get(), ">"});
    if (result == SMTP_OK) result = _Expect(REPLY_COMPLETED);
    for (const a_recipient_list& list : lists) {
        for (int i = 0; i < list.count && result == SMTP_OK; ++i)
            result = _SendRecipient(list.addresses[i]);
    }
    return result == SMTP_OK ? _Say("DATA\r\n", REPLY_START_MAIL_INPUT) : result;
}

int SMTPClient::_SendRecipient(const char* address) {
    a_reply reply;
    int result = _SendCommand({"RCPT TO:<", address, ">"});
    if (result == SMTP_OK) result = _ProcessResponse(reply, false);
    // A refusal counts even if its reply breaks off after the first line.
    if (means_refused(reply.code)) return SMTP_RECIPIENT_REFUSED;
    return reply.judged(result, REPLY_COMPLETED, SMTP_BAD_REPLY);
}

int SMTPClient::_SendContent(const char* text, const char* boundary, const char* path,
                             UTIStream& file) {
    _joined->begin();
    a_bool open_line = false;
    _SendRawText(text, std::strlen(text), &open_line);
    if (path != nullptr) {
        _SendMessageAttachments(boundary, path, file);
    } else if (open_line) {
        _sendData("\r\n", 2);
    }
    _sendData(".\r\n", 3);
    _joined->end();
    if (!_write_failed) return _Expect(REPLY_COMPLETED);
    // No answer counts: even one that accepts came too early to mean the whole message.
    return _socket.didTimeout() ? SMTP_TIMED_OUT : SMTP_BAD_REPLY;
}

// What RSET is answered does not matter: a server that refuses it refuses the next MAIL too.
int SMTPClient::_Abandon(int result) {
    _SayAnyway("RSET\r\n");
    return result;
}

int SMTPClient::_SendRawText(const char* text, size_t len, a_bool* open_line) {
    if (len == 0) return 0;
    const char* const end = text + len;
    const char* pending = text;  // not sent yet
    const char* from = text;     // not searched yet
    a_bool zero = false;         // ends the search
    // From dot to dot, not from line to line: a text has far fewer dots, and what lies between them
    // leaves in one piece. A zero byte is looked for in front of dots only; behind the last one it
    // changes nothing but *open_line.
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

int SMTPClient::_SendMessageAttachments(const char* boundary, const char* path, UTIStream& file) {
    if (boundary == nullptr || path == nullptr) return SMTP_OK;
    const char* const name = attachment_name(path);
    const size_t name_length = strnlen(name, longest_attachment_name);
    SMTPClientOStream section(this);
    char text[1024];  // more than the longest boundary and two names take
    UTStrOStream header(text, sizeof text);
    // Kept: "Content-transfer-encoding" in this mixture of cases.
    header.put("\r\n\r\n--");
    header.put(boundary);
    header.put("\r\nContent-Type: application/octet-stream; name=\"");
    header.put(name, name_length);
    header.put("\"\r\nContent-transfer-encoding: base64\r\n"
               "Content-Disposition: attachment; filename=\"");
    header.put(name, name_length);
    header.put("\"\r\n\r\n");
    section.put(header.GetString(), header.Length());
    // Base64 has no dots, so that it need not pass the dot-stuffing.
    // Kept: a read error ends the attachment like the end of the file.
    _contents->encode(file, *_ostrm);
    UTStrOStream delimiter(text, sizeof text);
    delimiter.put("\r\n\r\n--");
    delimiter.put(boundary);
    delimiter.put("--\r\n\r\n\r\n");
    section.put(delimiter.GetString(), delimiter.Length());
    return SMTP_OK;
}
