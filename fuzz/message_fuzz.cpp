// A login and a message: what was given comes out unchanged where it belongs, and nothing in it
// ends the message early or passes for a command.
//
// An input is a byte of options, then texts that end with a zero byte: user, password, sender,
// name, recipients, subject, content type, body; the rest is the attachment. Line breaks in what
// stands on one line are taken out, as a host does.

#include <array>
#include <vector>

#include "fuzz/smtpclient.h"
#include "tests/utils/etc/plainbase64.h"

namespace {

/// The answers are there beforehand.
class AgreeableSocket final : public FuzzedSocket {
  public:
    using Socket::recv;
    int recv(char* buf, unsigned int len) override {
        const size_t count = answers.copy(buf, len);
        answers.erase(0, count);
        return static_cast<int>(count);
    }
    std::string answers;
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

std::string sent_for(const Given& mail) {
    AgreeableSocket socket;
    socket.answers = "220 mail.test\r\n250-mail.test\r\n250 AUTH PLAIN\r\n235 in\r\n250 from\r\n";
    std::array<std::vector<const char*>, 3> lists;
    for (size_t i = 0; i < 3; ++i) {
        for (const std::string& address : mail.recipients[i]) {
            lists[i].push_back(address.c_str());
            socket.answers += "250 to\r\n";
        }
    }
    socket.answers += "354 data\r\n250 kept\r\n221 bye\r\n";
    const auto count = [&lists](size_t i) { return static_cast<int>(lists[i].size()); };
    const std::string path = file_with(mail.attachment);

    FuzzedClient client(socket);
    check(client.start(mail.sender.c_str(), mail.has_name ? mail.name.c_str() : nullptr,
                       mail.user.c_str(), mail.password.c_str()));
    check(client.SendMessage(mail.subject.c_str(), mail.has_body ? mail.body.c_str() : nullptr,
                             lists[0].data(), count(0), lists[1].data(), count(1), lists[2].data(),
                             count(2), mail.has_attachment ? path.c_str() : nullptr,
                             mail.has_type ? mail.type.c_str() : nullptr) == SMTP_OK);
    client.Disconnect();
    return socket.sent;
}

/// Takes `text` off the start of `from`.
void expect(std::string& from, const std::string& text) {
    check(from.starts_with(text));
    from.erase(0, text.size());
}

/// Takes what stands before `end` off the start of `from`, with the end.
std::string up_to(std::string& from, const std::string& end) {
    const size_t found = from.find(end);
    check(found != std::string::npos);
    std::string taken = from.substr(0, found);
    from.erase(0, found + end.size());
    return taken;
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Given mail = given(Input(data, size));
    std::string sent = sent_for(mail);
    expect(sent, "EHLO ");
    up_to(sent, "\r\n");
    // Kept: a long login is broken into lines of 512 characters, also at its end.
    expect(sent, "AUTH PLAIN ");
    expect(sent, plain_base64('\0' + mail.user + '\0' + mail.password, 512) + "\r\n");
    expect(sent, "MAIL FROM:<" + mail.sender + ">\r\n");
    for (const auto& list : mail.recipients)
        for (const std::string& address : list) expect(sent, "RCPT TO:<" + address + ">\r\n");
    expect(sent, "DATA\r\n");
    std::string message = undotted(up_to(sent, "\r\n.\r\n") + "\r\n");
    check(sent == "QUIT\r\n");

    expect(message,
           "From: " + (mail.has_name ? mail.name + " <" + mail.sender + ">" : mail.sender));
    up_to(message, std::string("\r\nX-Mailer: ") + external_library_name + "\r\n");
    if (mail.has_body) up_to(message, mail.body);
    if (mail.has_attachment)
        up_to(message, "\r\n\r\n" + plain_base64(mail.attachment, 76) + "\r\n");
    check(message.ends_with("\r\n"));
    return 0;
}
