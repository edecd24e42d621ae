#ifndef QUOREL_NETLIB_NETSMTP_H
#define QUOREL_NETLIB_NETSMTP_H

/// The SMTP client in clear text: RFC 5321 (SMTP), RFC 4954 and RFC 4616 (AUTH PLAIN), RFC 2045 to
/// 2047 (MIME), as far as sending needs them. One command at a time, CRLF line ends, EHLO without a
/// fall-back to HELO.
///
/// The code is split by concern: netsmtp.cpp opens and closes the session, netsmtp_reply.cpp reads
/// replies, netsmtp_auth.cpp logs in, netsmtp_compose.cpp builds the message, netsmtp_transfer.cpp
/// sends it.
///
///     SMTPClient client;
///     if (client.Connect(...) == SMTP_OK) {
///         client.SendMessage(...);
///         client.Disconnect();
///     }
///
/// Failure is a result code; the text of a reply is not reported. Strings that the client keeps
/// are copies. One thread at a time uses a client; it has no lock. A client is connected once.

#include <cstddef>
#include <initializer_list>
#include <memory>

#include "netlib/smtpbuffer.h"
#include "netlib/smtpsocket.h"
#include "utils/etc/utstream.h"
#include "utils/utmem/utmem.h"
#include "utils/utmem/uttext.h"
#include "utils/utmem/uttextarray.h"

class IPAddress;
class PosixIStream;

/// Result codes, which reach SQL unchanged.
enum a_smtp_result : int {
    SMTP_OK = 0,
    SMTP_BAD_ATTACHMENT = 12,     // the file cannot be read, or is not a regular file
    SMTP_NO_MEMORY = 15,          // out of memory; what there was none for did not go out in part
    SMTP_RECIPIENT_REFUSED = 20,  // RCPT was answered with 550, 551 or 553
    SMTP_NOT_CONNECTED = 100,     // no TCP connection
    SMTP_TIMED_OUT = 101,         // a reply did not come, or not fast enough
    SMTP_UNKNOWN_HOST = 102,      // the name does not resolve
    SMTP_BAD_REPLY = 104,         // a malformed reply or not the code expected; a failed write
    SMTP_NOT_SECURE = 105,        // the connection could not be secured
};

/// Reply codes that the client looks for: RFC 5321, section 4.2.3, and RFC 4954, section 6.
enum a_smtp_reply : int {
    REPLY_SERVICE_READY = 220,
    REPLY_AUTHENTICATED = 235,
    REPLY_COMPLETED = 250,
    REPLY_START_MAIL_INPUT = 354,
    REPLY_MAILBOX_UNAVAILABLE = 550,
    REPLY_USER_NOT_LOCAL = 551,
    REPLY_MAILBOX_NAME_NOT_ALLOWED = 553,
};

/// The name and version that this library goes by: in every message, and towards providers of TLS.
extern const char external_library_name[];

/// The order of the virtual operations is a binary interface; new ones go to the end.
class SMTPClient {
  public:
    /// Makes the socket, not yet connected.
    SMTPClient();
    /// Closes the connection, if still open, without QUIT.
    virtual ~SMTPClient();
    SMTPClient(const SMTPClient&) = delete;
    SMTPClient& operator=(const SMTPClient&) = delete;

    /// Opens the session up to where a message can be sent: connects to the first address of
    /// `host`, reads the greeting, says EHLO and, given both `user` and `password`, logs in.
    /// `timeout` is in seconds, 0 or less for no limit. It holds for connecting, for each write,
    /// for the first bytes of each reply, and then again for the rest of that reply (see
    /// SendMessage for what that makes of a message). `sender` is the envelope sender,
    /// `sender_name` its display name. Name, user and password may be null.
    ///
    /// After a failure the connection is closed and the client of no more use: QUIT was sent unless
    /// the greeting itself was wrong.
    virtual int Connect(const char* sender, const char* sender_name, const char* host, int port,
                        int timeout, const char* user, const char* password);

    /// Closes the connection, once.
    virtual void _Shutdown();
    /// Writes to the server; returns what the stream's put() returns. Once a write has failed or
    /// come short, an unknown part of a command or message is on its way, so nothing more is
    /// written at all: (size_t)-1.
    virtual size_t _sendData(const char* data, size_t len);
    /// Reads up to `len` bytes from the server, at least one unless there is none.
    virtual size_t _recvData(char* data, size_t len);

    /// Sends one message to all of `to`, `cc` and `bcc` or to nobody. Of each list the first
    /// `..._count` entries are taken, of which a null one is the empty address. `subject`, `body`,
    /// `attachment` (the path of a file) and `content_type` (of the body; see _ComposeMessage) may
    /// be null. Addresses, names and subject are pasted as given: callers keep line breaks out of
    /// them. The attachment is opened before a word is said (MAIL included) and read once the
    /// server has asked for the message. Memory does not grow with it.
    ///
    /// Time: a write has one time-out for the whole of it, however slowly the server takes its
    /// parts, and each reply two: one for its first bytes and one for the rest. The text and the
    /// attachment leave in writes of up to 88 KiB, so a server that takes less than that in a
    /// time-out ends the message with its first such write, and one that takes just as much holds
    /// the call for a time-out per 88 KiB.
    ///
    /// A command that cannot be sent ends the message at once. When the message itself breaks off,
    /// nothing more is written and no answer awaited, not even one that accepts (250, too early):
    /// the result is SMTP_TIMED_OUT where the server did not take a write whole in its
    /// time-out, else SMTP_BAD_REPLY.
    ///
    /// After a failure the server was told to forget the message (RSET), and the session remains
    /// usable. But where there was no memory for the message's text (SMTP_NO_MEMORY) nothing was
    /// said at all, and nothing need be. After SMTP_TIMED_OUT, as after every failure of the
    /// connection, all further messages give SMTP_BAD_REPLY at once, until another client is
    /// connected. And replies that went out of step with the commands, as an over-long reply line
    /// makes them, stay so: stop the session then.
    int SendMessage(const char* subject, const char* body, const char** to, int to_count,
                    const char** cc, int cc_count, const char** bcc, int bcc_count,
                    const char* attachment, const char* content_type);

    /// Says QUIT, reads a reply whatever it is unless that could not be said, and closes.
    void Disconnect();

    /// The first line of the EHLO reply that begins with `name`, whatever the case of letters:
    /// "AUTH" finds "AUTH PLAIN LOGIN". Null when there is none. It stays until the next EHLO.
    /// Kept: a prefix is enough, so "AUTH" finds "AUTHX" too.
    const char* FindServerCapability(const char* name) const;

  protected:
    class SMTPClientOStream;
    class JoinedWrites;
    class AttachmentBlocks;

    /// A reply, of which the last line that was read is kept, and its code.
    struct a_reply {
        /// `result` of the step that read it, but `unexpected` for another code than `expected`.
        int judged(int result, int expected, int unexpected) const;

        char line[256];  // the longest, CRLF included
        int code = 0;
    };

    // The steps of Connect, each with the reply to it. A reply of another code than the step wants
    // gives `unexpected`.

    /// Connects the socket to `address`, in the address's family, and puts the streams over it.
    int _ConnectSocket(const IPAddress& address);
    /// Reads a reply that should be `expected`.
    int _Expect(int expected, int unexpected = SMTP_BAD_REPLY);
    /// Says a whole line and reads the reply to it.
    int _Say(const char* line, int expected, int unexpected = SMTP_BAD_REPLY);
    /// The same whatever the reply.
    void _SayAnyway(const char* line);
    int _Introduce(const char* sender, const char* sender_name, int timeout, int unexpected);
    int _LogIn(const char* user, const char* password, int unexpected);

    // The dialogue. The code of `reply` is for the caller to judge. After a line that did not go
    // out no reply is waited for.

    /// Keeps copies of the sender and says EHLO.
    int _SMTPConnect(a_reply& reply, const char* sender, const char* sender_name, int timeout);
    /// Logs in with AUTH PLAIN. Without user or password sends nothing and gives code 235.
    int _SMTPAuthenticate(a_reply& reply, const char* user, const char* password);
    /// Reads one reply of one or more lines; with `is_ehlo` its lines become the capabilities.
    /// More than 1000 lines are malformed.
    int _ProcessResponse(a_reply& reply, a_bool is_ehlo);
    /// Reads up to a line feed, `buflen` bytes or the end of what comes; returns the count. A
    /// terminator follows the line feed where there is room for one.
    /// Kept: the rest of a longer line is the next line, which is malformed.
    size_t _ReadLine(char* buf, size_t buflen);

    /// Sends the parts, null ones left out, and CRLF as one line. SMTP_NO_MEMORY, with nothing
    /// sent, or SMTP_BAD_REPLY when it did not go out.
    int _SendCommand(std::initializer_list<const char*> parts);

    // The message.

    /// The header and the text part, CRLF-terminated, to be freed with ut_free(); null when out of
    /// memory. With `boundary` the text is the first part of a multipart message; a `content_type`
    /// that begins with "asis" leaves the text part's headers to the body.
    char* _ComposeMessage(const char* subject, const char* body, const char** to, int to_count,
                          const char** cc, int cc_count, const char* boundary,
                          const char* content_type);
    /// Sends text with a dot doubled where it begins a line (RFC 5321, 4.5.2); line ends stay as
    /// they are. *open_line tells whether the text did not end with a line feed; no text leaves it
    /// alone. Always returns 0: a failed write shows in _write_failed.
    /// Kept: a zero byte, and what follows it, goes out without doubling.
    int _SendRawText(const char* text, size_t len, a_bool* open_line);
    /// Sends the section of the attachment whose contents `file` delivers, and the closing
    /// delimiter. A null boundary or path sends nothing. The name in it is the path's last
    /// component.
    int _SendMessageAttachments(const char* boundary, const char* path, UTIStream& file);

    UTHeap _heap;
    SMTPSocket _socket;
    UTTextArray _ehlo_responses;  // the lines of the last reply to EHLO, without codes
    std::unique_ptr<UTPartialBufferedIStream> _istrm;  // null until connected
    std::unique_ptr<UTOStream> _ostrm;                 // null until connected
    int _timeout = 0;                                  // seconds
    UTText _sender;
    UTText _sender_name;
    a_bool _shutdown = false;      // the socket has been shut down and closed
    a_bool _write_failed = false;  // see _sendData

  private:
    class GuardedOStream;

    std::unique_ptr<JoinedWrites> _joined;  // null before the first message
    std::unique_ptr<AttachmentBlocks>
        _contents;  // null where the last message attached no small file

    int _SendLine(Buffer& line);
    int _SendLine(const char* line);
    struct a_recipient_list {
        const char* const* addresses;
        int count;
    };
    int _SendEnvelope(std::initializer_list<a_recipient_list> lists);
    int _SendRecipient(const char* address);
    int _SendContent(const char* text, const char* boundary, const char* path, UTIStream& file);
    /// Makes what a message is sent through, with an attachment or (null) without. False without
    /// memory.
    a_bool _MakeBuffers(const PosixIStream* file);
    void _GiveBackBuffers();
    int _Abandon(int result);
};

#endif
