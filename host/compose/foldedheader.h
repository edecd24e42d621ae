#ifndef QUOREL_HOST_COMPOSE_FOLDEDHEADER_H
#define QUOREL_HOST_COMPOSE_FOLDEDHEADER_H

/// Header lines of words (RFC 5322, section 2.2.3).

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// A header line under way, folded in front of the words that it has no more room for.
class FoldedHeader {
  public:
    /// What RFC 2047 gives a line with an encoded word; RFC 5322 recommends 78.
    static constexpr std::size_t width = 76;
    static constexpr std::size_t longest_line = 998;  ///< without its CRLF

    /// Appends to `to`, which outlives the header.
    FoldedHeader(std::string& to, std::string_view name);

    /// `gap` is the blanks in front of the word, one at least.
    void put(std::string_view word, std::string_view gap = " ");

    /// How long a word may be that still stands on this line.
    [[nodiscard]] std::size_t room() const;

    /// Ends the line. False: there was a word that is too long for any line.
    bool end();

  private:
    std::string& _to;
    std::size_t _column;
    bool _fits = true;
};

}  // namespace host

#endif
