/// Composes mails of any bytes: what is refused has a reason, and what is not is a message that any
/// server takes, with arguments that the library's hosts take.

#include "fuzz/fuzzed.h"
#include "host/compose/composer.h"
#include "host/content.h"

using namespace host;

namespace {

bool is_wire(std::string_view message) {
    constexpr size_t longest_line = 998;
    size_t line = 0;
    for (size_t i = 0; i < message.size(); ++i) {
        const char c = message[i];
        if (c == '\r') {
            if (message.substr(i, 2) != "\r\n") return false;
            ++i;
            line = 0;
        } else if ((c < ' ' && c != '\t') || c > '~' || ++line > longest_line) {
            return false;
        }
    }
    return true;
}

// A name of a header cannot begin a line of the message unless a field or a header asked for it.
bool has_header(std::string_view message, std::string_view name) {
    const std::string_view header = message.substr(0, message.find("\r\n\r\n"));
    return header.starts_with(name) || header.find("\r\n" + std::string(name)) != header.npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    std::string texts[12];
    for (std::string& text : texts) text = input.text();
    std::string content = input.rest();
    std::string error;
    std::vector<MailHeader> headers;
    if (!split_header_lines(texts[8], headers, error)) headers.clear();
    const MailAttachment attachment = {texts[9], texts[10], content, texts[11]};
    Mail mail = {.from = texts[0],
                 .sender_name = texts[1],
                 .to = texts[2],
                 .subject = texts[3],
                 .text = texts[4],
                 .html = texts[5],
                 .in_reply_to = texts[6],
                 .list_unsubscribe = texts[7],
                 .headers = headers};
    if (!texts[9].empty()) mail.attachments = {&attachment, 1};
    ComposedMail composed;
    const Composing end = compose(mail, composed, error);
    check(end != Composing::Failed);
    if (end == Composing::Rejected) {
        check(!error.empty());
        return 0;
    }
    check(is_wire(composed.message()));
    check(!has_header(composed.message(), "Bcc:") && !has_header(composed.message(), "From:"));
    check(complaint(Content::Address, composed.sender).empty());
    check(complaint(Content::Name, composed.sender_name).empty());
    check(!composed.recipients.empty());
    for (const std::string& recipient : composed.recipients) {
        check(complaint(Content::Address, recipient).empty());
        check(recipient.find(';') == std::string::npos);
        // What was made of an address is one, and the same.
        std::vector<std::string> again;
        check(list_addresses(recipient, again, error) && again.size() == 1);
        check(again.front() == recipient);
    }
    return 0;
}
