#ifndef QUOREL_HOST_COMPOSE_MAIL_H
#define QUOREL_HOST_COMPOSE_MAIL_H

/// A message as a person wants it sent.

#include <ctime>
#include <optional>
#include <span>
#include <string_view>

namespace host {

/// A header line of the sender's own, as `X-Order: 4711`.
struct MailHeader {
    std::string_view name = {};   ///< none that a field of Mail, the library or MIME itself decides
    std::string_view value = {};  ///< one line, in any language
};

struct MailAttachment {
    std::string_view name = {};  ///< the file's name, in any language; empty: it has none
    std::string_view type = {};  ///< "image/png", or "text/csv; charset=utf-8"; empty: by the name
    /// Any bytes, which arrive as they are; but for the line ends of a mail (message/rfc822) and an
    /// invitation (text/calendar; method=REQUEST), which are CRLF.
    std::string_view content = {};
    /// "logo", as an HTML text names it: <img src="cid:logo">. Empty: an attachment by itself.
    std::string_view content_id = {};
};

/// Everything is lent, and stays readable until compose() returns. All text is UTF-8; what is empty
/// was not given.
///
/// Addresses are written as people do, `ann@example.org` or `"Lee, Ann" <ann@example.org>`, and may
/// have comments, which are dropped; domains may be in any script. Lists have a comma or semicolon
/// between two addresses, and may have groups (`Team: a@example.org, b@example.org;`), whose
/// members take their place (RFC 5322, section 3.4).
struct Mail {
    std::string_view from = {};         ///< one address, the envelope's sender too
    std::string_view sender_name = {};  ///< takes the place of the name in `from`
    std::string_view to = {};           ///< a list, as are the next three
    std::string_view cc = {};
    std::string_view bcc = {};  ///< recipients whom the message does not tell of
    std::string_view reply_to = {};
    std::string_view subject = {};
    /// Line ends of any kind, which arrive as CRLF; one is added at the end if it is missing.
    std::string_view text = {};
    std::string_view html = {};  ///< the same in HTML: readers show one of the two
    std::span<const MailAttachment> attachments = {};

    std::string_view message_id = {};      ///< with or without <>; empty: a new one is made
    std::optional<std::time_t> date = {};  ///< empty: now
    std::string_view in_reply_to = {};     ///< identifiers of messages, blanks between
    std::string_view references = {};      ///< the same; empty: what `in_reply_to` says
    std::string_view list_unsubscribe = {};  ///< a URI, or several as in `<mailto:…>, <https://…>`
    /// A keyword of RFC 3834: says that no person wrote this, so that none is told that the
    /// recipient is away. A header of that name among `headers` takes its place.
    std::string_view auto_submitted = "auto-generated";
    std::span<const MailHeader> headers = {};
};

}  // namespace host

#endif
