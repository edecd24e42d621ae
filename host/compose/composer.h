#ifndef QUOREL_HOST_COMPOSE_COMPOSER_H
#define QUOREL_HOST_COMPOSE_COMPOSER_H

/// Makes a message that every mail server takes and every reader shows (RFC 5322, 2045 to 2047,
/// 2183, 2231, 2387, 3834) of what a person wants sent.
///
/// The library writes From, X-Mailer and MIME-Version, and a message's text as it is given if its
/// content type is "asis". So a composed message carries the rest of the header in front of that
/// text, and the library sends exactly it.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/compose/mail.h"

namespace host {

/// What the library is to be called with. All of it is ASCII without control characters, but for
/// the line ends (CRLF) of the message.
struct ComposedMail {
    std::string sender;       ///< `sender` of xp_startsmtp
    std::string sender_name;  ///< `sender_name` of it, or NULL where this is empty
    /// Each once. All or some of them, with ";" between, are `bcc_recipient` of xp_sendmail.
    std::vector<std::string> recipients;
    std::string message_id;  ///< with its <>

    /// `message` of xp_sendmail, beside `content_type` "asis" and no other argument but `raw` 1,
    /// which spares a look for line ends to mend. The library adds the last line end.
    [[nodiscard]] std::string_view message() const { return {bytes.get(), size}; }

    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
};

enum class Composing {
    Done,
    Rejected,  ///< the mail is none that can be sent, now or later
    Failed     ///< this machine has no memory, or no random bytes, now
};

/// Fills `composed`, the message in one buffer of its exact size. Otherwise `error` receives a
/// sentence that says which field is wrong and how, and `composed` is not to be used.
///
/// Threads: any number at once. Two calls with the same mail, its identifier and its date give
/// messages that differ in the boundaries between their parts alone.
Composing compose(const Mail& mail, ComposedMail& composed, std::string& error);

/// Takes apart "Name: value" lines, for Mail::headers; empty lines do not count. The headers point
/// into `lines`. False with a sentence in `error` for a line without a colon.
bool split_header_lines(std::string_view lines, std::vector<MailHeader>& headers,
                        std::string& error);

/// The addresses of a list in the form of ComposedMail::recipients; false with a sentence in
/// `error`.
bool list_addresses(std::string_view list, std::vector<std::string>& addresses, std::string& error);

}  // namespace host

#endif
