#ifndef QUOREL_HOST_OUTBOX_PGARRAY_H
#define QUOREL_HOST_OUTBOX_PGARRAY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host::outbox {

/// `text` as the database takes it: what one of UTF-8 would refuse, or one of another encoding may
/// refuse (`ascii`), becomes "?". An outcome must not be lost for its words.
[[nodiscard]] std::string storable(std::string_view text, bool ascii);

/// The text form of a PostgreSQL array, for a parameter: {1,NULL,"a \"b\""}.
class PgArray {
  public:
    void add(std::int64_t number);
    /// Nothing is NULL.
    void add(std::optional<std::string_view> text);

    [[nodiscard]] std::string text() const { return '{' + _elements + '}'; }

  private:
    void _separate();

    std::string _elements;
};

}  // namespace host::outbox

#endif
