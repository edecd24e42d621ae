#include "host/compose/headerfields.h"

#include <algorithm>
#include <iterator>

#include "host/compose/foldedheader.h"
#include "host/compose/headertext.h"
#include "host/text.h"

namespace host {

namespace {

bool end_field(FoldedHeader& field, std::string& error) {
    if (field.end()) return true;
    error = "has a word that is too long for a line of 998 bytes";
    return false;
}

// Printable ASCII.
bool is_graphic(char c) {
    return c > ' ' && c <= '~';
}

std::string_view without_brackets(std::string_view text) {
    return text.starts_with('<') && text.ends_with('>') ? text.substr(1, text.size() - 2) : text;
}

bool is_uri_in_brackets(std::string_view text) {
    const std::string_view uri = without_brackets(text);
    return uri.size() + 2 == text.size() && uri.find(':') != std::string_view::npos &&
           std::ranges::all_of(uri, is_graphic) && uri.find('<') == std::string_view::npos;
}

struct Reserved {
    std::string_view name;
    std::string_view reason;
};

constexpr std::string_view has_field = "is a field of its own";
constexpr std::string_view by_library = "is written by the library";
constexpr std::string_view by_servers = "is written by mail servers";
constexpr std::string_view by_contents = "follows from the text and the attachments";

constexpr Reserved reserved[] = {
    {"From", by_library},
    {"X-Mailer", by_library},
    {"MIME-Version", by_library},
    {"To", has_field},
    {"Cc", has_field},
    {"Bcc", has_field},
    {"Reply-To", has_field},
    {"Subject", has_field},
    {"Date", has_field},
    {"Message-ID", has_field},
    {"References", has_field},
    {"In-Reply-To", has_field},
    {"List-Unsubscribe", has_field},
    {"Return-Path", by_servers},
    {"Received", by_servers},
    {"Delivered-To", by_servers},
};

constexpr Reserved reserved_prefixes[] = {
    {"Content-", by_contents},
    {"Resent-", "is of whoever passes a message on"},
};

// Values of these are addresses, whose names are encoded otherwise than a text's words.
constexpr std::string_view address_fields[] = {
    "Sender",           "Errors-To",     "Disposition-Notification-To", "Return-Receipt-To",
    "Mail-Followup-To", "Mail-Reply-To",
};

bool check_name(std::string_view name, std::string& error) {
    if (!is_field_name(name)) {
        error = "is no name of a header: 1 to 50 letters, digits and signs but the colon";
        return false;
    }
    const auto* const row = std::ranges::find_if(
        reserved, [name](const Reserved& r) { return same_name(r.name, name); });
    const auto* const prefix = std::ranges::find_if(reserved_prefixes, [name](const Reserved& r) {
        return same_name(r.name, name.substr(0, r.name.size()));
    });
    if (row == std::end(reserved) && prefix == std::end(reserved_prefixes)) return true;
    error = row != std::end(reserved) ? row->reason : prefix->reason;
    return false;
}

}  // namespace

bool put_text_field(std::string& header, std::string_view name, std::string_view text,
                    std::string& error) {
    if (!check_header_text(text, error)) return false;
    FoldedHeader field(header, name);
    put_text(field, text);
    return end_field(field, error);
}

bool put_address_field(std::string& header, std::string_view name,
                       const std::vector<Address>& addresses, std::string& error) {
    FoldedHeader field(header, name);
    for (const Address& address : addresses) {
        const std::string_view comma = &address == &addresses.back() ? "" : ",";
        if (address.name.empty()) {
            field.put(address.mailbox + std::string(comma));
            continue;
        }
        for (const std::string& word : name_words(address.name, field.room())) field.put(word);
        field.put('<' + address.mailbox + '>' + std::string(comma));
    }
    return end_field(field, error);
}

bool read_identifier(std::string_view text, std::string& identifier, std::string& error) {
    constexpr std::size_t longest = 250;
    const std::string_view bare = without_brackets(text);
    if (bare.empty() || bare.size() > longest || !std::ranges::all_of(bare, is_graphic) ||
        bare.find_first_of("<>") != std::string_view::npos) {
        error = "has an identifier that is none: 1 to 250 ASCII letters, digits and signs without "
                "blanks, in < and > or not";
        return false;
    }
    identifier = '<' + std::string(bare) + '>';
    return true;
}

bool put_identifiers_field(std::string& header, std::string_view name, std::string_view list,
                           std::string& error) {
    FoldedHeader field(header, name);
    for (list = without_blanks(list); !list.empty(); list = without_blanks(list)) {
        const std::string_view word = list.substr(0, list.find_first_of(blanks));
        std::string identifier;
        if (!read_identifier(word, identifier, error)) return false;
        field.put(identifier);
        list.remove_prefix(word.size());
    }
    return end_field(field, error);
}

bool put_uris_field(std::string& header, std::string_view name, std::string_view list,
                    std::string& error) {
    FoldedHeader field(header, name);
    list = without_blanks(list);
    const std::string bracketed = '<' + std::string(list) + '>';
    if (!list.starts_with('<')) list = bracketed;
    error = "is no list of URIs as in <mailto:leave@example.org>, <https://example.org/leave>";
    for (bool more = true; more;) {
        const std::size_t end = list.find('>');
        if (end == std::string_view::npos || !is_uri_in_brackets(list.substr(0, end + 1)))
            return false;
        std::string uri(list.substr(0, end + 1));
        list = without_blanks(list.substr(end + 1));
        more = list.starts_with(',');
        if (!more && !list.empty()) return false;
        if (more) {
            list = without_blanks(list.substr(1));
            uri += ',';
        }
        field.put(uri);
    }
    return end_field(field, error);
}

bool is_field_name(std::string_view name) {
    constexpr std::size_t longest = 50;  // an encoded word still has room behind it
    return !name.empty() && name.size() <= longest &&
           std::ranges::all_of(name, [](char c) { return is_graphic(c) && c != ':'; });
}

bool put_own_field(std::string& header, std::string_view name, std::string_view value,
                   std::string& error) {
    if (!check_name(name, error)) return false;
    if (std::ranges::none_of(address_fields,
                             [name](std::string_view row) { return same_name(row, name); }))
        return put_text_field(header, name, value, error);
    std::vector<Address> addresses;
    if (!check_header_text(value, error) || !read_addresses(value, addresses, error)) return false;
    if (!addresses.empty()) return put_address_field(header, name, addresses, error);
    error = "has no address";
    return false;
}

}  // namespace host
