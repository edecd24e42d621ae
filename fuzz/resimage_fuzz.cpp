// Resource images: whatever an image holds, a lookup reads nothing outside it, and what it returns
// are bytes of the image.
//
// An input is an image.

#include <memory>

#include "fuzz/fuzzed.h"
#include "tests/utils/lang/memoryresfile.h"
#include "utils/lang/utlangstring.h"

namespace {

void check_lookup(UTResFile& file, uint32 id, size_t len, const std::string& image) {
    const std::unique_ptr<char[]> text(new char[len]);
    const size_t count = file.GetString(id, text.get(), len);
    check(count == 0 || (count < len && text[count] == '\0'));
    check(count == 0 || image.find(text.get(), 0, count) != std::string::npos);
    const std::unique_ptr<uint16[]> units(new uint16[len]);
    const size_t unit_count = file.GetStringUTF16(id, units.get(), len);
    check(unit_count == 0 || (unit_count < len && units[unit_count] == 0));
    check(unit_count <= count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const UTLocale locale(ls_english(), ls_find_charset("ISO-8859-1"));
    const std::string image(reinterpret_cast<const char*>(data), size);
    MemoryResFile file(image);
    if (!file.IsOpen()) return 0;
    UTLangStringBase strings(locale);
    strings.AddFile(&file);
    strings.SetCharset(locale.GetOSCharset());
    uint32 id = static_cast<uint32>(size) * 2654435761U;
    for (const uint32 fixed : {0U, 1U, 0x1234U, 5000U, 8643U, 0xFFFFU, id, id >> 16}) {
        id = id * 1664525U + 1013904223U;
        const size_t len = 1 + (id >> 24);
        check_lookup(file, fixed, len, image);
        const std::unique_ptr<char[]> text(new char[len]);
        const size_t length = strings.GetString(fixed, text.get(), len);
        check(length < len && text[length] == '\0');
    }
    return 0;
}
