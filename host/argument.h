#ifndef QUOREL_HOST_ARGUMENT_H
#define QUOREL_HOST_ARGUMENT_H

/// Values as people write them on a command line.

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "host/callframe.h"

namespace host {

/// The bytes of a whole file, in memory that may turn out not to be there.
class FileBytes {
  public:
    /// False with a sentence in `error`. Any kind of file that can be read to its end.
    bool read(const std::string& path, std::string& error);

    [[nodiscard]] std::string_view view() const { return {_bytes.get(), _length}; }

  private:
    struct Free {
        void operator()(char* bytes) const { free(bytes); }
    };

    [[nodiscard]] bool _grow(std::size_t capacity);
    [[nodiscard]] bool _read_all(int file);

    std::unique_ptr<char, Free> _bytes;
    std::size_t _capacity = 0;
    std::size_t _length = 0;
};

/// Reads one argument and gives it to `frame` as parameter `number`: `null`, `int:N`, `@file` (the
/// file's bytes, which `file` then holds and lends to the frame), `text:…` (the rest as it stands);
/// anything else is text. False with a sentence in `error` when a number is none, a file cannot be
/// read, or the frame refuses the value.
bool give_argument(CallFrame& frame, std::uint32_t number, std::string_view written,
                   FileBytes& file, std::string& error);

}  // namespace host

#endif
