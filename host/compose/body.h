#ifndef QUOREL_HOST_COMPOSE_BODY_H
#define QUOREL_HOST_COMPOSE_BODY_H

/// The contents of a part as they travel (RFC 2045, section 6).

#include <cstdint>
#include <string_view>

namespace host {

enum class Transfer { SevenBit, QuotedPrintable, Base64 };

/// Lent contents, and how they travel. A text's line ends, of any kind, become CRLF, and its last
/// line gets one if it has none.
class Body {
  public:
    /// As it is if every server would take it so, else as the shorter of the other two.
    static Body of_text(std::string_view text);
    static Body of_bytes(std::string_view bytes);

    [[nodiscard]] Transfer transfer() const { return _transfer; }
    [[nodiscard]] std::string_view transfer_name() const;
    [[nodiscard]] std::string_view content() const { return _content; }

    /// How long it is without the line end behind its last line.
    [[nodiscard]] std::uint64_t length() const { return _length; }
    /// Writes length() bytes, and returns their end.
    char* write(char* to) const;
    /// What ends the last line: a text's own line end, which base64 carries within.
    [[nodiscard]] std::string_view last_line_end() const;

  private:
    std::string_view _content;
    std::uint64_t _length = 0;
    Transfer _transfer = Transfer::Base64;
    bool _is_text = false;
};

}  // namespace host

#endif
