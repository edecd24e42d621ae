// A login and a message, for a server that takes apart what it got more strictly than servers do:
// every byte has its place, what was given comes out unchanged, and nothing in it ends the message
// early or passes for a command.
//
// An input is a byte of options, then texts that end with a zero byte: user, password, sender,
// name, recipients, subject, content type, body; the rest is the attachment. Line breaks in what
// stands on one line are taken out, as a host does.

#include <array>
#include <vector>

#include "fuzz/fuzzed.h"
#include "netlib/netsmtp.h"
#include "netlib/socketstream.h"
#include "tests/utils/etc/plainbase64.h"
#include "utils/locale/utlocale.h"

namespace {

/// Keeps what is sent; the answers are there beforehand.
class AgreeableSocket final : public Socket {
  public:
    using Socket::recv;
    using Socket::send;

    int recv(char* buf, unsigned int len) override {
        const size_t count = answers.copy(buf, len);
        answers.erase(0, count);
        return static_cast<int>(count);
    }
    int send(const char* buf, unsigned int len) override {
        sent.append(buf, len);
        return static_cast<int>(len);
    }
    void shutdown(a_socket_shutdown_flag) override {}

    std::string answers;
    std::string sent;
};

/// The client without a connection: its session over the socket.
class FuzzedClient final : public SMTPClient {
  public:
    explicit FuzzedClient(AgreeableSocket& socket) {
        _istrm = std::make_unique<SockIStream>(socket, &_heap);
        _ostrm = std::make_unique<SockOStream>(socket);
    }
    void start(const char* sender, const char* name, const char* user, const char* password) {
        a_reply reply;
        check(_SMTPConnect(reply, sender, name, 0) == SMTP_OK && reply.code == 250);
        check(_SMTPAuthenticate(reply, user, password) == SMTP_OK && reply.code == 235);
    }
};

/// What was sent, read from its start; all of it has to be read.
class Reader {
  public:
    explicit Reader(std::string text) : _text(std::move(text)) {}
    ~Reader() { check(_at == _text.size()); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void expect(const std::string& text) {
        check(_text.compare(_at, text.size(), text) == 0);
        _at += text.size();
    }
    std::string up_to(const std::string& end) {
        const size_t found = _text.find(end, _at);
        check(found != std::string::npos);
        const std::string taken = _text.substr(_at, found - _at);
        _at = found + end.size();
        return taken;
    }

  private:
    const std::string _text;
    size_t _at = 0;
};

/// A message as it was given.
struct Given {
    bool has_name, has_body, has_attachment, has_type;
    std::string user, password, sender, name;
    std::array<std::vector<std::string>, 3> recipients;  // to, cc, bcc
    std::string subject, type, body, attachment;
};

Given given(Input input) {
    const auto line = [&input] {
        std::string text = input.text();
        std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
        return text;
    };
    const unsigned options = input.byte();
    Given mail;
    mail.has_name = (options & 1) != 0;
    mail.has_body = (options & 2) != 0;
    mail.has_attachment = (options & 4) != 0;
    mail.has_type = (options & 8) != 0;
    for (std::string* text : {&mail.user, &mail.password, &mail.sender, &mail.name}) *text = line();
    for (auto& list : mail.recipients)
        for (unsigned count = options >> 4 & 3; count != 0; --count) list.push_back(line());
    mail.subject = line();
    mail.type = line();
    mail.body = input.text();
    mail.attachment = input.rest();
    return mail;
}

std::string sent_for(const Given& mail, const std::string& path) {
    AgreeableSocket socket;
    socket.answers = "250-mail.test\r\n250 AUTH PLAIN\r\n235 in\r\n250 from\r\n";
    for (const auto& list : mail.recipients)
        for (size_t i = 0; i < list.size(); ++i) socket.answers += "250 to\r\n";
    socket.answers += "354 data\r\n250 kept\r\n221 bye\r\n";
    std::array<std::vector<const char*>, 3> lists;
    for (size_t i = 0; i < 3; ++i)
        for (const std::string& address : mail.recipients[i]) lists[i].push_back(address.c_str());
    const auto count = [&lists](size_t i) { return static_cast<int>(lists[i].size()); };

    FuzzedClient client(socket);
    client.start(mail.sender.c_str(), mail.has_name ? mail.name.c_str() : nullptr,
                 mail.user.c_str(), mail.password.c_str());
    check(client.SendMessage(mail.subject.c_str(), mail.has_body ? mail.body.c_str() : nullptr,
                             lists[0].data(), count(0), lists[1].data(), count(1), lists[2].data(),
                             count(2), mail.has_attachment ? path.c_str() : nullptr,
                             mail.has_type ? mail.type.c_str() : nullptr) == SMTP_OK);
    client.Disconnect();
    return socket.sent;
}

/// Takes the doubled dots back, of which none is missing.
std::string undotted(const std::string& text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '.' && i > 0 && text[i - 1] == '\n') check(text[++i] == '.');
        result += text[i];
    }
    return result;
}

void read_addresses(Reader& message, const char* field, const std::vector<std::string>& addresses) {
    for (size_t i = 0; i < addresses.size(); ++i)
        message.expect((i == 0 ? field : ",") + addresses[i]);
    if (!addresses.empty()) message.expect("\r\n");
}

std::string subject_text(const std::string& subject) {
    if (std::all_of(subject.begin(), subject.end(), [](char c) { return (c & 0x80) == 0; }))
        return subject;
    std::string text = std::string("=?") + ls_os_charset_label() + "?q?";
    constexpr char digits[] = "0123456789abcdef";
    for (const char c : subject) {
        const auto byte = static_cast<unsigned char>(c);
        text += {'=', digits[byte >> 4], digits[byte & 15]};
    }
    return text + "?=";
}

void read_part_header(Reader& message, const Given& mail) {
    const std::string own = mail.has_type ? mail.type.substr(0, 4) : "";
    if (own.size() == 4 && std::equal(own.begin(), own.end(), "asis",
                                      [](char a, char b) { return a == b || a == b - 'a' + 'A'; }))
        return;
    message.expect("Content-Type: ");
    message.expect(mail.has_type ? mail.type + ";"
                                 : std::string("text/plain; charset=") + ls_os_charset_label());
    message.expect("\r\nContent-Disposition: inline;\r\n\r\n");
}

void read_attachment(Reader& message, const Given& mail, const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    message.expect("\r\n\r\n--");
    const std::string boundary = message.up_to("\r\n");
    message.expect("Content-Type: application/octet-stream; name=\"" + name +
                   "\"\r\nContent-transfer-encoding: base64\r\nContent-Disposition: attachment; "
                   "filename=\"" +
                   name + "\"\r\n\r\n");
    message.expect(plain_base64(mail.attachment, 76));
    message.expect("\r\n\r\n--" + boundary + "--\r\n\r\n\r\n");
}

void read_message(Reader message, const Given& mail, const std::string& path) {
    message.expect("From: ");
    message.expect(mail.has_name ? mail.name + " <" + mail.sender + ">" : mail.sender);
    message.expect("\r\n");
    read_addresses(message, "To: ", mail.recipients[0]);
    read_addresses(message, "Cc: ", mail.recipients[1]);
    message.expect("Subject: " + subject_text(mail.subject) + "\r\n");
    message.expect(std::string("X-Mailer: ") + external_library_name + "\r\n");
    if (mail.has_body) {
        message.expect("MIME-Version: 1.0\r\n");
        if (mail.has_attachment) {
            message.expect("Content-Type: multipart/mixed; boundary=\"");
            const std::string boundary = message.up_to("\";\r\n");
            message.expect("--" + boundary + "\r\n");
        }
        read_part_header(message, mail);
        message.expect(mail.body);
    }
    message.expect("\r\n");
    if (mail.has_attachment) read_attachment(message, mail, path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Given mail = given(Input(data, size));
    const std::string path = file_with(mail.attachment);
    Reader session(sent_for(mail, path));
    session.expect("EHLO ");
    session.up_to("\r\n");
    // Kept: a long login is broken into lines of 512 characters, also at its end.
    session.expect("AUTH PLAIN ");
    session.expect(plain_base64('\0' + mail.user + '\0' + mail.password, 512) + "\r\n");
    session.expect("MAIL FROM:<" + mail.sender + ">\r\n");
    for (const auto& list : mail.recipients)
        for (const std::string& address : list) session.expect("RCPT TO:<" + address + ">\r\n");
    session.expect("DATA\r\n");
    read_message(Reader(undotted(session.up_to("\r\n.\r\n") + "\r\n")), mail, path);
    session.expect("QUIT\r\n");
    return 0;
}
