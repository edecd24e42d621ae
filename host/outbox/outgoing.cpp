#include "host/outbox/outgoing.h"

#include <vector>

namespace host::outbox {

namespace {

std::string_view view(const Text& text) {
    return text ? std::string_view(*text) : std::string_view();
}

std::vector<MailAttachment> attachments_of(const Message& message) {
    std::vector<MailAttachment> all;
    for (const Attachment& a : message.attachments)
        all.push_back({a.name, view(a.type), a.content, view(a.content_id)});
    return all;
}

Mail mail_of(const Message& message, const Account& account) {
    Mail mail;
    const bool has_sender = message.sender && !message.sender->empty();
    mail.from = view(has_sender ? message.sender : account.sender);
    // An account's name is not that of another sender.
    mail.sender_name =
        view(has_sender || message.sender_name ? message.sender_name : account.sender_name);
    mail.to = view(message.recipients);
    mail.cc = view(message.cc);
    mail.bcc = view(message.bcc);
    mail.reply_to = view(message.reply_to);
    mail.subject = view(message.subject);
    mail.text = view(message.text_body);
    mail.html = view(message.html_body);
    mail.message_id = message.message_id;
    mail.date = static_cast<std::time_t>(message.created);
    mail.in_reply_to = view(message.in_reply_to);
    mail.references = view(message.references);
    mail.list_unsubscribe = view(message.list_unsubscribe);
    return mail;
}

}  // namespace

Composing compose_outgoing(Message& message, const Account& account, ComposedMail& composed,
                           std::string& error) {
    std::vector<MailHeader> headers;
    if (!split_header_lines(view(message.headers), headers, error)) return Composing::Rejected;
    const std::vector<MailAttachment> attachments = attachments_of(message);
    Mail mail = mail_of(message, account);
    mail.headers = headers;
    mail.attachments = attachments;
    const Composing end = compose(mail, composed, error);
    message.attachments = {};
    message.text_body.reset();
    message.html_body.reset();
    return end;
}

}  // namespace host::outbox
