#include "host/compose/mediatype.h"

#include <algorithm>
#include <iterator>

#include "host/compose/headertext.h"
#include "host/text.h"

namespace host {

namespace {

struct Ending {
    std::string_view ending;
    std::string_view type;
};

// What databases send.
constexpr Ending endings[] = {
    {"7z", "application/x-7z-compressed"},
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"eml", "message/rfc822"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ics", "text/calendar"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"json", "application/json"},
    {"md", "text/markdown"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"rtf", "application/rtf"},
    {"sql", "application/sql"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"tsv", "text/tab-separated-values"},
    {"txt", "text/plain"},
    {"vcf", "text/vcard"},
    {"wav", "audio/wav"},
    {"webp", "image/webp"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"zip", "application/zip"},
    {"zst", "application/zstd"},
};

void skip_blanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
}

std::string_view take_token(std::string_view& text) {
    skip_blanks(text);
    const std::string_view token = text.substr(0, text.find_first_of(" \t/;="));
    text.remove_prefix(token.size());
    skip_blanks(text);
    return is_token(token) ? token : std::string_view();
}

bool take(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    skip_blanks(text);
    return true;
}

bool take_value(std::string_view& text, std::string& value) {
    if (!text.starts_with('"')) {
        value = take_token(text);
        return !value.empty();
    }
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            skip_blanks(text);
            return true;
        }
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
    }
    return false;
}

bool take_parameter(std::string_view& text, MediaType& type) {
    Parameter parameter;
    parameter.name = take_token(text);
    if (parameter.name.empty() || parameter.name.size() > longest_parameter_name ||
        parameter.name.find_first_of("*'%") != std::string::npos ||
        has_parameter(type, parameter.name))
        return false;
    if (!take(text, '=') || !take_value(text, parameter.value)) return false;
    if (!same_name(parameter.name, "name")) type.parameters.push_back(std::move(parameter));
    return true;
}

}  // namespace

bool has_parameter(const MediaType& type, std::string_view name) {
    return std::ranges::any_of(type.parameters, [name](const Parameter& parameter) {
        return same_name(parameter.name, name);
    });
}

bool read_media_type(std::string_view text, MediaType& type, std::string& error) {
    if (!check_header_text(text, error)) return false;
    error = "is no type such as image/png or text/csv; charset=utf-8";
    // Each parameter is looked for among those before it.
    constexpr std::size_t longest = 1000;
    if (text.size() > longest) return false;
    type.name = take_token(text);
    if (type.name.empty() || !take(text, '/')) return false;
    if (same_name(type.name, "multipart")) {
        error = "cannot be multipart: an attachment is one part";
        return false;
    }
    const std::string_view subtype = take_token(text);
    if (subtype.empty()) return false;
    type.name += '/';
    type.name += subtype;
    constexpr std::size_t longest_name = 127;  // RFC 4288, section 4.2
    if (type.name.size() > longest_name) return false;
    while (take(text, ';'))
        if (!text.empty() && !take_parameter(text, type)) return false;
    return text.empty();
}

std::string_view type_of_file(std::string_view name) {
    const std::string_view ending = name.substr(name.rfind('.') + 1);
    const auto* const found = std::ranges::find_if(
        endings, [ending](const Ending& row) { return same_name(row.ending, ending); });
    return found == std::end(endings) ? "application/octet-stream" : found->type;
}

}  // namespace host
