#ifndef QUOREL_HOST_FILEBYTES_H
#define QUOREL_HOST_FILEBYTES_H

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace host {

/// The bytes of a whole file, in memory that may turn out not to be there: a std::string would end
/// the program then.
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

}  // namespace host

#endif
