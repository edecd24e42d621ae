#ifndef QUOREL_UTILS_LANG_UTRESFILE_H
#define QUOREL_UTILS_LANG_UTRESFILE_H

/// Language resource files: tables of message texts keyed by identifiers of 16 bits, one file per
/// language.
///
/// Threads: lookups are safe on any number of threads at once; opening and closing is not, neither
/// beside each other nor beside a lookup.

#include <cstddef>

#include "utils/etc/uttypes.h"
#include "utils/locale/charset.h"
#include "utils/locale/language.h"

/// Strings with a meaning of their own in every file. They are plain ASCII whatever the file's
/// character set.
enum a_reserved_string : uint32 {
    /// The file's version as decimal text.
    RES_VERSION_STRING = 5000,
    /// What the file is: eight characters ("charset="), the label of its character set, then
    /// ";language=" and the language.
    RES_DESCRIPTION_STRING = 8643,
};

/// The head of an image, which stands at its start. All numbers are little-endian.
///
/// An identifier is looked up in `_level_bits` many levels of tables, its highest bits first. A
/// table of a level with b bits is an array of 2^b offsets from the image's start, 0 for "no
/// string"; those of the last level lead to string records: a uint16 length, then that many bytes
/// of text, not terminated. Nothing needs to be aligned.
struct QXResFileImage {
    uint32 _signature;      ///< QX_RES_SIGNATURE
    uint32 _endian_detect;  ///< QX_RES_ENDIAN
    uint32 _version;        ///< of the format: 0
    a_byte _level_bits[4];  ///< identifier bits per level; a 0 ends the list; 16 in all
    uint32 _root_offset;    ///< offset of the first level's table
};
static_assert(sizeof(QXResFileImage) == 20);

inline constexpr uint32 QX_RES_SIGNATURE = 0x4F534552;  // "RESO"
inline constexpr uint32 QX_RES_ENDIAN = 0x12345678;

/// A source of message texts, whatever it is stored in. Pointers are not null but where it says so.
class UTResFile {
  public:
    UTResFile() = default;
    UTResFile(const UTResFile&) = delete;
    UTResFile& operator=(const UTResFile&) = delete;
    virtual ~UTResFile() = default;

    /// Opens the file at `path`, closing one that is open. False, with nothing open, when there is
    /// none or it is not valid; null names none.
    virtual a_bool Open(const char* path) = 0;

    /// The same; with `locate` set, `path` is a bare file name that the library's locator finds.
    virtual a_bool Open(const char* path, a_bool locate) = 0;

    /// Locates and opens the file for `language`, the "_iq" variant when `iq` is set; false for
    /// null.
    virtual a_bool Open(const LanguageInfo* language, a_bool iq) = 0;

    /// Closes the file; nothing happens when none is open.
    virtual void Close() = 0;

    /// The handle of the library that the texts are part of; null for a file of its own.
    virtual void* GetDLLHandle() = 0;

    /// Whether the texts are UTF-16, so that GetStringUTF16 is the way to read them.
    virtual a_bool UTF16Supported() = 0;

    /// Copies the text of `id`, in the file's character set, into `buf`: at most `len` - 1 bytes,
    /// terminated. Returns the bytes copied; 0, with `buf` untouched, when there is none or `len`
    /// is 0, and 0, with `buf` empty, when the text is empty. Of `id`, the low 16 bits count.
    virtual size_t GetString(uint32 id, char* buf, size_t len) = 0;

    /// The same in units of 16 bits, `len` and the result too.
    virtual size_t GetStringUTF16(uint32 id, uint16* buf, size_t len) = 0;

    /// Puts the name of the file for a language into `buf`, terminated: "nxlg", the label, "_iq"
    /// when `iq` is set, the release "12", for Japanese the part that names the system's character
    /// set, and ".res". False, with `buf` empty, when it does not fit.
    virtual a_bool get_resource_file_base_name(char* buf, size_t len, const char* iso_label,
                                               a_bool iq) = 0;

    a_bool IsOpen() const { return _is_open; }
    /// The file's character set; null when it does not say, or says one that is not known.
    const CharsetInfo* GetCharset() const { return _src_csinfo; }
    /// The language that the file was opened for; null when it was opened by its path.
    const LanguageInfo* GetLanguage() const { return _langinfo; }

  protected:
    a_bool _is_open = false;
    const CharsetInfo* _src_csinfo = nullptr;
    const LanguageInfo* _langinfo = nullptr;
};

/// A resource file with the image format above, mapped into memory read-only and private. What the
/// file holds is not trusted: no lookup reads outside the image, and an offset or length that leads
/// there counts as "no string".
///
/// A file in use is replaced by renaming another over it; cutting it in place would take the mapped
/// pages away.
class UTQXResFile : public UTResFile {
  public:
    UTQXResFile() = default;
    ~UTQXResFile() override { UTQXResFile::Close(); }

    a_bool Open(const char* path) override;
    a_bool Open(const char* path, a_bool locate) override;
    a_bool Open(const LanguageInfo* language, a_bool iq) override;
    void Close() override;
    void* GetDLLHandle() override { return nullptr; }
    a_bool UTF16Supported() override;
    size_t GetString(uint32 id, char* buf, size_t len) override;
    size_t GetStringUTF16(uint32 id, uint16* buf, size_t len) override;
    a_bool get_resource_file_base_name(char* buf, size_t len, const char* iso_label,
                                       a_bool iq) override;

  protected:
    /// Takes `size` bytes at `image` as the image. False, with the image not taken, when it is not
    /// valid. The bytes stay the caller's and outlive their use.
    a_bool _Attach(const a_byte* image, size_t size);
    /// Forgets the image without unmapping it.
    void _Detach();

  private:
    struct Text {
        const a_byte* start;  // null: there is none
        size_t length;
    };

    static constexpr size_t MAX_LEVELS = sizeof(QXResFileImage::_level_bits);

    a_bool _ReadHeader();
    a_bool _SetLevels(const a_byte (&level_bits)[MAX_LEVELS]);
    const CharsetInfo* _ReadCharset();
    a_bool _Holds(uint32 offset, size_t length) const;
    Text _Find(uint32 id) const;

    const a_byte* _img = nullptr;
    size_t _img_size = 0;
    uint32 _num_levels = 0;
    uint32 _level_bits[MAX_LEVELS] = {};
    uint32 _level_shift[MAX_LEVELS] = {};
    uint16 _level_mask[MAX_LEVELS] = {};
    uint32 _root = 0;  // offset of the first level's table
};

#endif
