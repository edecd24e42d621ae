#include "utils/lang/utlangstring.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "utils/etc/utascii.h"
#include "utils/etc/utsnprintf.h"
#include "utils/lang/wlangfmt.h"
#include "utils/unix/locate.h"

namespace {

/// Files from this version on have every text that this release asks for.
constexpr uint32 oldest_version = 120;

bool is_utf16(const CharsetInfo* charset) {
    return charset != nullptr && charset->id == CHARSET_UTF16;
}

/// The file's version, from its leading digits; 0 when it does not say. From oldest_version up, any
/// number that is as good.
uint32 file_version(UTResFile& file) {
    std::array<char, 16> text{};
    file.GetString(RES_VERSION_STRING, text.data(), text.size());
    uint32 version = 0;
    for (const char* at = text.data(); ut_is_digit(*at) && version < oldest_version; ++at) {
        version = version * 10 + static_cast<uint32>(*at - '0');
    }
    return version;
}

/// A text in UTF-16 as bytes, with a terminator of 16 bits.
size_t get_utf16_bytes(UTResFile& file, uint32 id, char* buf, size_t len) {
    // `buf` may lie at an odd address.
    std::array<uint16, UTLangStringBase::MAX_CONVERTED / sizeof(uint16)> text;
    const size_t room = std::min(len / sizeof(uint16), text.size());
    const size_t bytes = file.GetStringUTF16(id, text.data(), room) * sizeof(uint16);
    if (bytes > 0) std::memcpy(buf, text.data(), bytes + sizeof(uint16));
    return bytes;
}

}  // namespace

UTLangStringBase::UTLangStringBase(const UTLocale& locale) : _locale(&locale) {}

a_bool UTLangStringBase::AddFile(UTResFile* file) {
    if (_nres == MAX_FILES) return false;
    _res[_nres++] = file;
    _ResetConverters();
    return true;
}

void UTLangStringBase::RemoveFiles() {
    _nres = 0;
    _ResetConverters();
}

void UTLangStringBase::SetCharset(const CharsetInfo* dest) {
    _dest_csinfo = dest;
    _ResetConverters();
}

void UTLangStringBase::SetArgCharset(const CharsetInfo* arg) {
    _arg_csinfo = arg;
    _ResetConverters();
}

void UTLangStringBase::_ResetConverters() {
    for (CharsetConverter& converter : _conv) converter.Close();
    for (size_t i = 0; i < _nres; ++i) _conv[i].Open(_res[i]->GetCharset(), _dest_csinfo);
    const CharsetInfo* texts = _dest_csinfo;
    if (texts == nullptr && _nres > 0) texts = _res[0]->GetCharset();
    _arg_conv.Open(_arg_csinfo, texts);
}

/// Without its critical section (the pool could not grow) the object delivers texts as they are.
a_bool UTLangStringBase::_NeedsConversion(const CharsetConverter& converter) const {
    return converter.NeedsConversion() && _section.exists();
}

size_t UTLangStringBase::GetString(uint32 id, char* buf, size_t len) {
    if (len == 0) return 0;
    std::memset(buf, 0, std::min(len, sizeof(uint16)));  // a terminator of either kind
    for (size_t i = 0; i < _nres; ++i) {
        const size_t length = _NeedsConversion(_conv[i]) ? _GetConverted(i, id, buf, len)
                                                         : do_get_string(i, id, buf, len);
        if (length > 0) return length;
    }
    return 0;
}

/// The text as it stands in the file.
size_t UTLangStringBase::do_get_string(size_t file, uint32 id, char* buf, size_t len) {
    UTResFile& res = *_res[file];
    return res.UTF16Supported() ? get_utf16_bytes(res, id, buf, len) : res.GetString(id, buf, len);
}

size_t UTLangStringBase::_GetConverted(size_t file, uint32 id, char* buf, size_t len) {
    std::array<char, MAX_CONVERTED> text;
    const size_t text_length = do_get_string(file, id, text.data(), text.size());
    const size_t terminator = is_utf16(_dest_csinfo) ? sizeof(uint16) : 1;
    if (text_length == 0 || len < terminator) return 0;
    const UTLock inside(_section.mutex());
    const size_t length = _conv[file].Convert(text.data(), text_length, buf, len - terminator);
    std::memset(buf + length, 0, terminator);
    return length;
}

size_t UTLangStringBase::FormatMiscLangStr(uint32 id, char* buf, size_t len, ...) {
    va_list args;
    va_start(args, len);
    const size_t length = VFormatMiscLangStr(id, buf, len, args);
    va_end(args);
    return length;
}

size_t UTLangStringBase::VFormatMiscLangStr(uint32 id, char* buf, size_t len, va_list args) {
    std::array<char, MAX_FORMAT> format;
    if (len == 0) return 0;
    buf[0] = '\0';
    if (GetString(id, format.data(), format.size()) == 0) return 0;
    return VFormatMiscStr(buf, len, format.data(), args);
}

size_t UTLangStringBase::FormatMiscStr(char* buf, size_t len, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const size_t length = VFormatMiscStr(buf, len, format, args);
    va_end(args);
    return length;
}

size_t UTLangStringBase::VFormatMiscStr(char* buf, size_t len, const char* format, va_list args) {
    return wlangfmt(buf, len, format, args, _NeedsConversion(_arg_conv) ? _WriteArg : nullptr,
                    this);
}

size_t UTLangStringBase::_WriteArg(void* self, const char* parm, char* buf, size_t len) {
    auto* strings = static_cast<UTLangStringBase*>(self);
    const UTLock inside(strings->_section.mutex());
    return strings->_arg_conv.Convert(parm, std::strlen(parm), buf, len);
}

UTLangString::UTLangString(const UTLocale& locale, const char* directory)
    : UTLangStringBase(locale), _directory(directory) {}

ls_init_return UTLangString::Init(const char* language_label, const CharsetInfo* dest, a_bool iq) {
    if (_initialized) return LS_INIT_OKAY;
    ls_char_functions.init();
    const LanguageInfo* wanted = _Wanted(language_label);
    const ls_init_return result = _OpenFile(_res_file, wanted, iq);
    // English stands behind the wanted language, for the texts that its file lacks.
    const bool fallback =
        wanted != ls_english() && _OpenFile(_default_res_file, ls_english(), iq) == LS_INIT_OKAY;
    // The wanted file's failure counts, even where English would be to blame too.
    if (result != LS_INIT_OKAY && !fallback) {
        Fini();
        return result;
    }
    _langinfo = result == LS_INIT_OKAY ? wanted : ls_english();
    SetCharset(dest != nullptr ? dest : _locale->GetOSCharset());
    _initialized = true;
    return LS_INIT_OKAY;
}

void UTLangString::Fini() {
    RemoveFiles();
    _res_file.Close();
    _default_res_file.Close();
    _langinfo = nullptr;
    _initialized = false;
}

const LanguageInfo* UTLangString::_Wanted(const char* language_label) const {
    const LanguageInfo* language = ls_find_language(language_label);
    return language != nullptr ? language : _locale->GetOSLanguage();
}

a_bool UTLangString::_Open(UTQXResFile& file, const LanguageInfo* language, a_bool iq) {
    if (_directory == nullptr) return file.Open(language, iq);
    std::array<char, 64> name;
    std::array<char, LOCATE_MAX_PATH> path;
    if (!file.get_resource_file_base_name(name.data(), name.size(), language->iso_label, iq)) {
        return false;
    }
    ut_snprintf(path.data(), path.size(), "%s/%s", _directory, name.data());
    return file.Open(path.data());
}

ls_init_return UTLangString::_OpenFile(UTQXResFile& file, const LanguageInfo* language, a_bool iq) {
    if (!_Open(file, language, iq)) {
        return iq ? LS_INIT_CANT_FIND_IQ_FILE : LS_INIT_CANT_FIND_FILE;
    }
    const uint32 version = file_version(file);
    if (version > 0 && version < oldest_version) {
        file.Close();
        return LS_INIT_BAD_VERSION;
    }
    AddFile(&file);
    return LS_INIT_OKAY;
}

size_t UTLangString::GetInitErrorStr(ls_init_return code, char* buf, size_t len,
                                     const char* language_label, a_bool iq) {
    const LanguageInfo* wanted = _Wanted(language_label);
    std::array<char, 64> name;
    _res_file.get_resource_file_base_name(name.data(), name.size(), wanted->iso_label, iq);
    return ls_init_error_text(code, wanted, _locale->GetOSCharset(), name.data(), buf, len);
}
