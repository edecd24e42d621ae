#ifndef QUOREL_TESTS_UTILS_LANG_MEMORYRESFILE_H
#define QUOREL_TESTS_UTILS_LANG_MEMORYRESFILE_H

#include <cstring>
#include <memory>
#include <string>

#include "utils/lang/utresfile.h"

/// A resource file over a heap block of the image's exact size, for AddressSanitizer to see.
class MemoryResFile : public UTQXResFile {
  public:
    explicit MemoryResFile(const std::string& image) : _copy(new a_byte[image.size()]) {
        std::memcpy(_copy.get(), image.data(), image.size());
        _Attach(_copy.get(), image.size());
    }
    ~MemoryResFile() override { _Detach(); }
    MemoryResFile(const MemoryResFile&) = delete;
    MemoryResFile& operator=(const MemoryResFile&) = delete;

  private:
    std::unique_ptr<a_byte[]> _copy;
};

inline std::string text_of(UTResFile& file, uint32 id, size_t len = 256) {
    const std::unique_ptr<char[]> text(new char[len]);
    return {text.get(), file.GetString(id, text.get(), len)};
}

#endif
