#include "utils/lang/utresfile.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

#include "utils/etc/utascii.h"
#include "utils/etc/utsnprintf.h"
#include "utils/locale/utlocale.h"
#include "utils/unix/locate.h"
#include "utils/unix/utdescriptor.h"

static_assert(std::endian::native == std::endian::little, "images are read in place");

namespace {

constexpr uint32 id_bits = 16;
constexpr size_t description_size = 96;
constexpr size_t description_key_size = 8;
constexpr const char* language_key = ";language=";

// Nothing in an image is aligned.
template <class Number>
Number load(const a_byte* from) {
    Number value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

struct Mapping {
    void* start = MAP_FAILED;
    size_t size = 0;
};

/// Maps the whole file read-only and private; the mapping outlives the descriptor.
Mapping map_file(const char* path) {
    Mapping mapping;
    // O_NONBLOCK: a pipe at that place fails to map, it does not keep the host waiting for a
    // writer.
    const UTDescriptor file(_posix_open(path, O_RDONLY | O_NONBLOCK, 0));
    if (!file.is_open()) return mapping;
    const int64 length = _posix_filelength(file.get());
    if (length > 0 && static_cast<uint64>(length) <= SIZE_MAX) {
        mapping.size = static_cast<size_t>(length);
        mapping.start = mmap(nullptr, mapping.size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    }
    return mapping;
}

}  // namespace

a_bool UTQXResFile::Open(const char* path) {
    Close();
    const Mapping mapping = map_file(path);
    if (mapping.start == MAP_FAILED) return false;
    if (_Attach(static_cast<const a_byte*>(mapping.start), mapping.size)) return true;
    munmap(mapping.start, mapping.size);
    return false;
}

a_bool UTQXResFile::Open(const char* path, a_bool locate) {
    if (!locate) return Open(path);
    Close();
    std::array<char, LOCATE_MAX_PATH> located;
    return ut_locate_file(LOCATE_RESOURCE, path, located.data(), located.size()) &&
           Open(located.data());
}

a_bool UTQXResFile::Open(const LanguageInfo* language, a_bool iq) {
    std::array<char, 64> name;
    Close();
    if (language == nullptr) return false;
    if (!get_resource_file_base_name(name.data(), name.size(), language->iso_label, iq)) {
        return false;
    }
    if (!Open(name.data(), true)) return false;
    _langinfo = language;
    return true;
}

void UTQXResFile::Close() {
    if (_img != nullptr) munmap(const_cast<a_byte*>(_img), _img_size);
    _Detach();
}

a_bool UTQXResFile::UTF16Supported() {
    return _src_csinfo != nullptr && _src_csinfo->id == CHARSET_UTF16;
}

size_t UTQXResFile::GetString(uint32 id, char* buf, size_t len) {
    if (len == 0) return 0;
    const Text text = _Find(id);
    if (text.start == nullptr) return 0;
    const size_t count = std::min(text.length, len - 1);
    std::memcpy(buf, text.start, count);
    buf[count] = '\0';
    return count;
}

size_t UTQXResFile::GetStringUTF16(uint32 id, uint16* buf, size_t len) {
    if (len == 0) return 0;
    const Text text = _Find(id);
    if (text.start == nullptr) return 0;
    const size_t length = text.length / sizeof(uint16);
    const size_t count = std::min(length, len - 1);
    std::memcpy(buf, text.start, count * sizeof(uint16));
    buf[count] = 0;
    return count;
}

a_bool UTQXResFile::get_resource_file_base_name(char* buf, size_t len, const char* iso_label,
                                                a_bool iq) {
    const char* part = ut_equal_nocase(iso_label, "ja") ? ls_japanese_part(ls_os_charset()) : "";
    // In room of its own first: a name that is cut would be another file's.
    std::array<char, 64> name;
    const size_t length =
        ut_snprintf(name.data(), name.size(), "nxlg%s%s12%s.res", iso_label, iq ? "_iq" : "", part);
    const bool fits = length + 1 < name.size() && length < len;
    if (len > 0) ut_snprintf(buf, len, "%s", fits ? name.data() : "");
    return fits;
}

a_bool UTQXResFile::_Attach(const a_byte* image, size_t size) {
    _img = image;
    _img_size = size;
    _is_open = _ReadHeader();
    if (!_is_open) {
        _Detach();
        return false;
    }
    _src_csinfo = _ReadCharset();
    return true;
}

void UTQXResFile::_Detach() {
    _img = nullptr;
    _img_size = 0;
    _num_levels = 0;
    _is_open = false;
    _src_csinfo = nullptr;
    _langinfo = nullptr;
}

/// Checks the head and works out the levels.
a_bool UTQXResFile::_ReadHeader() {
    if (_img_size < sizeof(QXResFileImage)) return false;
    const auto head = load<QXResFileImage>(_img);
    if (head._signature != QX_RES_SIGNATURE || head._endian_detect != QX_RES_ENDIAN) return false;
    if (head._version != 0 || head._root_offset >= _img_size) return false;
    _root = head._root_offset;
    return _SetLevels(head._level_bits);
}

a_bool UTQXResFile::_SetLevels(const a_byte (&level_bits)[MAX_LEVELS]) {
    uint32 used = 0;
    for (const uint32 bits : level_bits) {
        // After the level that ends the list early there is none, so nothing may be left over.
        if (bits == 0) break;
        used += bits;
        if (used > id_bits) return false;
        _level_bits[_num_levels] = bits;
        _level_shift[_num_levels] = id_bits - used;
        _level_mask[_num_levels] = static_cast<uint16>((1U << bits) - 1);
        ++_num_levels;
    }
    const uint32 all = level_bits[0] + level_bits[1] + level_bits[2] + level_bits[3];
    return used == id_bits && all == id_bits;
}

/// The character set that the description names.
const CharsetInfo* UTQXResFile::_ReadCharset() {
    std::array<char, description_size> text;
    if (GetString(RES_DESCRIPTION_STRING, text.data(), text.size()) == 0) return nullptr;
    char* language = std::strstr(text.data(), language_key);
    if (language == nullptr) return nullptr;
    *language = '\0';
    return std::strlen(text.data()) > description_key_size
               ? ls_find_charset(text.data() + description_key_size)
               : nullptr;
}

/// Whether `length` bytes at `offset` lie inside the image.
a_bool UTQXResFile::_Holds(uint32 offset, size_t length) const {
    return offset <= _img_size && length <= _img_size - offset;
}

UTQXResFile::Text UTQXResFile::_Find(uint32 id) const {
    constexpr Text none{nullptr, 0};
    // Each table is checked as it is reached; to check all of them at the start would read the
    // whole file from disk for the few texts that are wanted.
    uint32 offset = _root;
    for (uint32 level = 0; level < _num_levels; ++level) {
        const uint32 index = (id >> _level_shift[level]) & _level_mask[level];
        const uint32 entry = index * sizeof(uint32);
        if (!_Holds(offset, entry + sizeof(uint32))) return none;
        offset = load<uint32>(_img + offset + entry);
        if (offset == 0) return none;
    }
    if (_num_levels == 0 || !_Holds(offset, sizeof(uint16))) return none;
    const size_t length = load<uint16>(_img + offset);
    const a_byte* start = _img + offset + sizeof(uint16);
    if (length > _img_size - offset - sizeof(uint16)) return none;
    return {start, length};
}
