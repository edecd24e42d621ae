#ifndef QUOREL_HOST_COMPOSE_BASE64LINES_H
#define QUOREL_HOST_COMPOSE_BASE64LINES_H

/// Base64 in lines of 76 (RFC 2045, section 6.8).

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace host {

/// How long so many bytes become, CRLF between lines and none at the end.
[[nodiscard]] std::uint64_t base64_lines_length(std::uint64_t bytes);

/// Writes what it is given piece by piece.
class Base64Lines {
  public:
    /// `to` has room for base64_lines_length() of all the pieces together.
    explicit Base64Lines(char* to) : _to(to) {}

    void put(std::string_view bytes);

    /// Writes what is left; returns the end of it all.
    char* end();

  private:
    static constexpr std::size_t line = 57;  ///< bytes that make 76 characters

    void put_line(std::string_view bytes);

    char* _to;
    char _held[line];  // the beginning of a line whose rest is to come
    std::size_t _held_size = 0;
    bool _first = true;
};

}  // namespace host

#endif
