#ifndef QUOREL_EXTDLL_SCANFORMAT_H
#define QUOREL_EXTDLL_SCANFORMAT_H

/// Makes a scanning format that comes from SQL safe for sscanf(3) with a fixed set of buffers.

#include <cstddef>

/// A format that stores at most `longest_value` characters and a terminator in any one buffer, and
/// names at most `buffers` of them.
///
/// Character conversions without a width, or with a larger one, get `longest_value`, so that the
/// buffers need one byte more. Conversions of numbers stay as they are: they store the few bytes of
/// the number. The format ends where the C library would stop scanning, at a conversion that it
/// does not know.
class ScanFormat {
  public:
    static constexpr int buffers = 50;
    static constexpr int longest_value = 254;

    /// Reads `format`, which is not needed afterwards.
    explicit ScanFormat(const char* format);
    ~ScanFormat();
    ScanFormat(const ScanFormat&) = delete;
    ScanFormat& operator=(const ScanFormat&) = delete;

    /// The safe format, owned by this object. Null when the format must not be used: it allocates
    /// ("%ms"), stores wide characters, names a buffer that there is not, or memory ran out.
    [[nodiscard]] const char* text() const { return _text; }

  private:
    // Room for what a format of 255 characters may turn into, so that most need no allocation.
    static constexpr std::size_t inline_size = 3 * 255 + 1;

    char* _text = nullptr;
    char _inline[inline_size];
};

#endif
