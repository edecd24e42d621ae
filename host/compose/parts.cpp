#include "host/compose/parts.h"

#include <algorithm>
#include <utility>

#include "host/compose/foldedheader.h"

namespace host {

namespace {

std::string type_line(const MediaType& type) {
    std::string line;
    FoldedHeader header(line, "Content-Type");
    put_value(header, type.name, type.parameters);
    header.end();
    return line;
}

}  // namespace

Part join_parts(std::string_view type, std::vector<Part> parts) {
    if (parts.size() == 1) return std::move(parts.front());
    Part part;
    part.type.name = type;
    // RFC 2387, section 3.1: the type of the part that the others belong to.
    if (type == "multipart/related")
        part.type.parameters.push_back({"type", parts.front().type.name});
    part.parts = std::move(parts);
    return part;
}

bool has_in_contents(const Part& part, std::string_view text) {
    if (part.body.transfer() == Transfer::SevenBit &&
        part.body.content().find(text) != std::string_view::npos)
        return true;
    return std::ranges::any_of(part.parts,
                               [text](const Part& inner) { return has_in_contents(inner, text); });
}

void Layout::put(const Part& part, std::string_view boundary) {
    if (!part.parts.empty()) return put_multipart(part, boundary);
    put(type_line(part.type));
    put("Content-Transfer-Encoding: ");
    put(part.body.transfer_name());
    put("\r\n");
    put(part.header);
    put("\r\n");
    _pieces.push_back({part.body, {}});
}

void Layout::put_multipart(const Part& part, std::string_view boundary) {
    // A number makes one for each, of which none begins with another.
    const std::string own = std::string(boundary) + std::to_string(++_multiparts) + '_';
    MediaType type = part.type;
    type.parameters.push_back({"boundary", own});
    put(type_line(type));
    put(part.header);
    put("\r\n");
    for (const Part& inner : part.parts) {
        put("--" + own + "\r\n");
        put(inner, boundary);
        if (inner.parts.empty()) put(inner.body.last_line_end());
        put("\r\n");
    }
    put("--" + own + "--");
}

std::uint64_t Layout::length() const {
    std::uint64_t length = 0;
    for (const Piece& piece : _pieces) length += piece.body.length() + piece.text.size();
    return length;
}

void Layout::write(char* to) const {
    for (const Piece& piece : _pieces) to = std::ranges::copy(piece.text, piece.body.write(to)).out;
}

}  // namespace host
