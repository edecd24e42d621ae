#include "host/compose/composer.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <unordered_set>
#include <utility>

#include "host/compose/contents.h"
#include "host/compose/encodedword.h"
#include "host/compose/foldedheader.h"
#include "host/compose/headerfields.h"
#include "host/compose/headertext.h"
#include "host/compose/maildate.h"
#include "host/compose/parts.h"
#include "host/compose/randomtoken.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::string_view auto_submitted_name = "Auto-Submitted";

// The same for addresses that differ in the case of their domains' letters at most.
std::string delivery_key(std::string mailbox) {
    const auto domain = mailbox.begin() + static_cast<std::ptrdiff_t>(mailbox.rfind('@'));
    std::transform(domain, mailbox.end(), domain, to_lower);
    return mailbox;
}

std::string_view domain_of(std::string_view mailbox) {
    return mailbox.substr(mailbox.rfind('@') + 1);
}

class Composer {
  public:
    Composer(const Mail& mail, ComposedMail& composed, std::string& error)
        : _mail(mail), _composed(composed), _error(error) {}

    Composing compose();

  private:
    bool check_size();
    bool read_sender();
    bool read_recipients();
    bool read_list(std::string_view field, std::string_view list, std::vector<Address>& addresses);
    bool put_header();
    bool put_date();
    bool put_message_id();
    bool put_recipients();
    bool put_own_headers();
    bool write(const Part& whole);
    bool choose_boundary(const Part& whole, std::string& boundary);

    bool refuse(std::string_view field, std::string_view reason) {
        _error = std::string(field) + ": " + std::string(reason);
        return false;
    }
    // For what has written the end of the sentence.
    bool check(std::string_view field, bool holds) {
        return holds || refuse(field, std::string(_error));
    }
    bool fail(std::string_view reason) {
        _failed = true;
        _error = reason;
        return false;
    }

    const Mail& _mail;
    ComposedMail& _composed;
    std::string& _error;
    std::vector<Address> _to;
    std::vector<Address> _cc;
    std::vector<Address> _bcc;
    std::vector<Address> _reply_to;
    std::string _header;
    bool _failed = false;
};

Composing Composer::compose() {
    Part whole;
    const bool done = check_size() && read_sender() && read_recipients() && put_header() &&
                      read_contents(_mail, whole, _error) && write(whole);
    if (done) return Composing::Done;
    return _failed ? Composing::Failed : Composing::Rejected;
}

// A header of any size would be a program's end where memory is short, and no server takes one.
bool Composer::check_size() {
    constexpr std::uint64_t largest = 1U << 20;
    std::uint64_t size = 0;
    for (const std::string_view text :
         {_mail.from, _mail.sender_name, _mail.to, _mail.cc, _mail.bcc, _mail.reply_to,
          _mail.subject, _mail.message_id, _mail.in_reply_to, _mail.references,
          _mail.list_unsubscribe, _mail.auto_submitted})
        size += text.size();
    for (const auto& [name, value] : _mail.headers) size += name.size() + value.size();
    for (const MailAttachment& attachment : _mail.attachments)
        size += attachment.name.size() + attachment.type.size() + attachment.content_id.size();
    return size <= largest || refuse("header", "takes more than 1 MiB");
}

bool Composer::read_list(std::string_view field, std::string_view list,
                         std::vector<Address>& addresses) {
    return check(field, check_header_text(list, _error) && read_addresses(list, addresses, _error));
}

bool Composer::read_sender() {
    std::vector<Address> senders;
    if (!read_list("from", _mail.from, senders)) return false;
    if (senders.empty()) return refuse("from", "has no address");
    if (senders.size() > 1) return refuse("from", "has more than one address");
    _composed.sender = std::move(senders.front().mailbox);
    std::string name = std::move(senders.front().name);
    if (!_mail.sender_name.empty()) {
        if (!check("sender_name", check_header_text(_mail.sender_name, _error))) return false;
        name = _mail.sender_name;
        std::ranges::replace(name, '\t', ' ');
    }
    _composed.sender_name.clear();
    for (const std::string& word : name_words(name, longest_encoded_word)) {
        if (!_composed.sender_name.empty()) _composed.sender_name += ' ';
        _composed.sender_name += word;
    }
    // The library folds no line: "From: ", the name, a blank and the address in brackets.
    constexpr std::size_t around = 9;
    if (around + _composed.sender_name.size() + _composed.sender.size() >
        FoldedHeader::longest_line)
        return refuse("sender_name", "is too long for a line of 998 bytes");
    return true;
}

bool Composer::read_recipients() {
    if (!read_list("to", _mail.to, _to) || !read_list("cc", _mail.cc, _cc) ||
        !read_list("bcc", _mail.bcc, _bcc) || !read_list("reply_to", _mail.reply_to, _reply_to))
        return false;
    _composed.recipients.clear();
    std::unordered_set<std::string> seen;
    for (const auto* addresses : {&_to, &_cc, &_bcc})
        for (const Address& address : *addresses)
            if (seen.insert(delivery_key(address.mailbox)).second)
                _composed.recipients.push_back(address.mailbox);
    return !_composed.recipients.empty() || refuse("to", "there is no recipient, nor in cc or bcc");
}

bool Composer::put_header() {
    const std::string_view references =
        _mail.references.empty() ? _mail.in_reply_to : _mail.references;
    const auto put = [this](auto put_field, std::string_view field, std::string_view name,
                            std::string_view value) {
        return value.empty() || check(field, put_field(_header, name, value, _error));
    };
    return put_date() && put_message_id() && put_recipients() &&
           put(put_text_field, "subject", "Subject", _mail.subject) &&
           put(put_identifiers_field, "in_reply_to", "In-Reply-To", _mail.in_reply_to) &&
           put(put_identifiers_field, "references", "References", references) &&
           put(put_uris_field, "list_unsubscribe", "List-Unsubscribe", _mail.list_unsubscribe) &&
           put_own_headers();
}

bool Composer::put_date() {
    const std::string date = mail_date(_mail.date.value_or(std::time(nullptr)));
    if (date.empty()) return refuse("date", "is not between the years 1900 and 9999");
    _header += "Date: " + date + "\r\n";
    return true;
}

bool Composer::put_message_id() {
    if (_mail.message_id.empty()) {
        std::string token;
        if (!random_token(token)) return fail("the system has no random bytes");
        _composed.message_id = '<' + token + '@' + std::string(domain_of(_composed.sender)) + '>';
    } else {
        if (!check("message_id", read_identifier(_mail.message_id, _composed.message_id, _error)))
            return false;
        const std::string_view id = _composed.message_id;
        if (std::ranges::count(id, '@') != 1 || id.starts_with("<@") || id.ends_with("@>"))
            return refuse("message_id", "is not of two halves with an @ between");
    }
    return check("message_id",
                 put_identifiers_field(_header, "Message-ID", _composed.message_id, _error));
}

bool Composer::put_recipients() {
    // An empty group in place of recipients whom the message does not tell of.
    if (_to.empty() && _cc.empty()) _header += "To: undisclosed-recipients:;\r\n";
    const auto put = [this](std::string_view field, std::string_view name,
                            const std::vector<Address>& addresses) {
        return addresses.empty() ||
               check(field, put_address_field(_header, name, addresses, _error));
    };
    return put("to", "To", _to) && put("cc", "Cc", _cc) && put("reply_to", "Reply-To", _reply_to);
}

bool Composer::put_own_headers() {
    bool is_said = _mail.auto_submitted.empty();
    int number = 0;
    for (const auto& [name, value] : _mail.headers) {
        ++number;
        // What is no name may be of any length and bytes, and is not said again.
        const std::string label =
            "header " + (is_field_name(name) ? std::string(name) : std::to_string(number));
        if (!check(label, put_own_field(_header, name, value, _error))) return false;
        is_said = is_said || same_name(name, auto_submitted_name);
    }
    if (is_said) return true;
    return check("auto_submitted",
                 put_own_field(_header, auto_submitted_name, _mail.auto_submitted, _error));
}

bool Composer::choose_boundary(const Part& whole, std::string& boundary) {
    // "=_" is in nothing that is quoted-printable or base64 (RFC 2045, section 6.7).
    constexpr int draws = 8;
    std::string token;
    for (int i = 0; i < draws; ++i) {
        if (!random_token(token)) return fail("the system has no random bytes");
        boundary = "=_" + token;
        if (!has_in_contents(whole, boundary)) return true;
    }
    return fail("the system's random bytes are none");
}

bool Composer::write(const Part& whole) {
    std::string boundary;
    if (!whole.parts.empty() && !choose_boundary(whole, boundary)) return false;
    Layout layout;
    layout.put(_header);
    layout.put(whole, boundary);
    constexpr std::uint64_t largest = INT32_MAX;
    if (layout.length() > largest) return refuse("message", "takes more than 2 GiB");
    const auto size = static_cast<std::size_t>(layout.length());
    _composed.bytes.reset(new (std::nothrow) char[size]);
    if (_composed.bytes == nullptr) return fail("there is no memory for the message");
    layout.write(_composed.bytes.get());
    _composed.size = size;
    return true;
}

}  // namespace

Composing compose(const Mail& mail, ComposedMail& composed, std::string& error) {
    return Composer(mail, composed, error).compose();
}

}  // namespace host
