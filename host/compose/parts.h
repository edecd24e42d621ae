#ifndef QUOREL_HOST_COMPOSE_PARTS_H
#define QUOREL_HOST_COMPOSE_PARTS_H

/// The parts of a message, within one another (RFC 2046, section 5.1), and the one piece of memory
/// that they are written into.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/compose/body.h"
#include "host/compose/mediatype.h"

namespace host {

struct Part {
    MediaType type;
    std::string header;       ///< more lines of its header
    Body body;                ///< unless it has parts
    std::vector<Part> parts;  ///< of a multipart type, the main one first
};

/// Several parts as one of the type "multipart/…"; the part itself where there is only one.
[[nodiscard]] Part join_parts(std::string_view type, std::vector<Part> parts);

/// Whether `text` stands in contents that travel as they are, where it could be a boundary.
[[nodiscard]] bool has_in_contents(const Part& part, std::string_view text);

/// Texts with the contents between them, measured before there is memory for them.
class Layout {
  public:
    void put(std::string_view text) { _pieces.back().text += text; }

    /// Puts a part and all within; the line end of its last line is missing. `boundary` begins the
    /// boundaries: what it must not be in is has_in_contents()'s business.
    void put(const Part& part, std::string_view boundary);

    [[nodiscard]] std::uint64_t length() const;
    /// Writes length() bytes.
    void write(char* to) const;

  private:
    struct Piece {
        Body body;
        std::string text;  // behind it
    };

    void put_multipart(const Part& part, std::string_view boundary);

    std::vector<Piece> _pieces = std::vector<Piece>(1);
    unsigned _multiparts = 0;
};

}  // namespace host

#endif
