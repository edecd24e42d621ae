#include "host/compose/contents.h"

#include <algorithm>
#include <utility>

#include "host/compose/foldedheader.h"
#include "host/compose/headerfields.h"
#include "host/compose/headertext.h"
#include "host/text.h"
#include "host/utf8.h"

namespace host {

namespace {

using Parts = std::vector<Part>;

Parameter utf8_charset() {
    return {"charset", "utf-8"};
}

bool add_text(std::string_view field, std::string_view text, std::string_view type, Parts& parts,
              std::string& error) {
    if (!is_utf8(text)) {
        error = std::string(field) + ": is not UTF-8";
        return false;
    }
    Part& part = parts.emplace_back();
    part.type = {std::string(type), {utf8_charset()}};
    part.body = Body::of_text(text);
    return true;
}

// A file's name for readers that know no RFC 2231. They find it beside the type, where a second
// form of it is no fault; beside the disposition it is one.
std::string plain_name(std::string_view name) {
    constexpr std::size_t longest = 60;
    std::string plain;
    while (!name.empty()) {
        const std::size_t length = first_character(name).length;
        const bool keep =
            length == 1 && std::string_view("\"\\?\t").find(name[0]) == std::string_view::npos;
        plain += keep ? name[0] : '_';
        name.remove_prefix(length);
    }
    return plain.size() <= longest ? plain : std::string();
}

// A message within a message travels as it is or not at all (RFC 2046, section 5.2.1): one that
// servers would not take so is a file like others.
void set_content(std::string_view content, Part& part) {
    constexpr std::string_view message = "message/";
    if (same_name(part.type.name.substr(0, message.size()), message)) {
        part.body = Body::of_text(content);
        if (part.body.transfer() == Transfer::SevenBit) return;
        part.type = {"application/octet-stream", {}};
    }
    part.body = Body::of_bytes(content);
}

bool has_parameter(const MediaType& type, std::string_view name) {
    return std::ranges::any_of(type.parameters, [name](const Parameter& parameter) {
        return same_name(parameter.name, name);
    });
}

// What calendars act on (RFC 6047, section 2.4), if it is an alternative to the text.
bool is_invitation(const MediaType& type) {
    return same_name(type.name, "text/calendar") && has_parameter(type, "method");
}

bool read_attachment(const MailAttachment& attachment, bool is_shown, Part& part,
                     std::string& error) {
    if (!check_header_text(attachment.name, error)) return false;
    part.type.name = type_of_file(attachment.name);
    if (!attachment.type.empty() && !read_media_type(attachment.type, part.type, error))
        return false;
    if (is_invitation(part.type) && is_utf8(attachment.content)) {
        if (!has_parameter(part.type, "charset")) part.type.parameters.push_back(utf8_charset());
        part.body = Body::of_text(attachment.content);
        return true;
    }
    set_content(attachment.content, part);
    if (!attachment.content_id.empty()) {
        std::string identifier;
        if (!read_identifier(attachment.content_id, identifier, error)) return false;
        part.header += "Content-ID: " + identifier + "\r\n";
    }
    FoldedHeader disposition(part.header, "Content-Disposition");
    std::vector<Parameter> parameters;
    if (!attachment.name.empty()) parameters.push_back({"filename", std::string(attachment.name)});
    put_value(disposition, is_shown ? "inline" : "attachment", parameters);
    disposition.end();
    std::string plain = plain_name(attachment.name);
    if (!plain.empty()) part.type.parameters.push_back({"name", std::move(plain)});
    return true;
}

}  // namespace

bool read_contents(const Mail& mail, Part& whole, std::string& error) {
    Parts texts;
    const bool is_empty = mail.text.empty() && mail.html.empty() && mail.attachments.empty();
    if ((is_empty || !mail.text.empty()) &&
        !add_text("text", mail.text, "text/plain", texts, error))
        return false;
    if (!mail.html.empty() && !add_text("html", mail.html, "text/html", texts, error)) return false;

    Parts shown;
    Parts attached;
    for (std::size_t i = 0; i < mail.attachments.size(); ++i) {
        const MailAttachment& attachment = mail.attachments[i];
        const bool is_shown = !attachment.content_id.empty() && !mail.html.empty();
        Part part;
        if (!read_attachment(attachment, is_shown, part, error)) {
            error.insert(0, "attachment " + std::to_string(i + 1) + ": ");
            return false;
        }
        Parts& place = is_invitation(part.type) ? texts : is_shown ? shown : attached;
        place.push_back(std::move(part));
    }
    if (!texts.empty())
        shown.insert(shown.begin(), join_parts("multipart/alternative", std::move(texts)));
    if (!shown.empty())
        attached.insert(attached.begin(), join_parts("multipart/related", std::move(shown)));
    whole = join_parts("multipart/mixed", std::move(attached));
    return true;
}

}  // namespace host
