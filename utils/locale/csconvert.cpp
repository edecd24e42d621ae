#include "utils/locale/csconvert.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <iconv.h>

namespace {

bool is_identity(const CharsetInfo* from, const CharsetInfo* to) {
    if (from == nullptr || to == nullptr || from == to) return true;
    // iconv would refuse bytes beyond ASCII that such a text holds against its label.
    return from->id == CHARSET_US_ASCII && to->id != CHARSET_UTF16;
}

constexpr auto failed = static_cast<size_t>(-1);

void forget_state(iconv_t handle) {
    iconv(handle, nullptr, nullptr, nullptr, nullptr);
}

/// Where the converted text goes.
struct Output {
    char* at;
    size_t room;
    const CharsetInfo* charset;
    size_t* lost;  // may be null

    /// Appends "?" in place of a character, and counts it; false when there is no room.
    bool PutReplacement() {
        const size_t size = charset->id == CHARSET_UTF16 ? 2 : 1;
        if (room < size) return false;
        std::memcpy(at, "?\0", size);
        at += size;
        room -= size;
        if (lost != nullptr) ++*lost;
        return true;
    }

    /// Delivers the character that a decoder holds back because a combining one might follow it
    /// (windows-1255, windows-1258, Big5-HKSCS); false when there is no room.
    bool PutHeldBack(iconv_t handle) {
        if (iconv(handle, nullptr, nullptr, &at, &room) != failed) return true;
        if (errno == E2BIG) return false;
        forget_state(handle);
        return PutReplacement();
    }
};

}  // namespace

void CharsetConverter::Open(const CharsetInfo* from, const CharsetInfo* to) {
    Close();
    if (is_identity(from, to)) return;
    const iconv_t handle = iconv_open(to->iconv_name, from->iconv_name);
    if (handle == reinterpret_cast<iconv_t>(-1)) return;
    _handle = handle;
    _from = from;
    _to = to;
}

void CharsetConverter::Close() {
    if (_handle != nullptr) iconv_close(_handle);
    _handle = nullptr;
}

size_t CharsetConverter::Convert(const char* text, size_t text_len, char* buf, size_t len,
                                 size_t* lost) {
    if (_handle == nullptr) {
        const size_t count = std::min(text_len, len);
        if (count != 0) std::memcpy(buf, text, count);
        return count;
    }
    char* in = const_cast<char*>(text);  // iconv's prototype; it does not write there
    // A text before this one may have ended in the middle of a character.
    Output out = {buf, len, _to, lost};
    forget_state(_handle);
    while (iconv(_handle, &in, &text_len, &out.at, &out.room) == failed) {
        const int error = errno;
        // What the decoder holds back comes before the character that stopped it. EINVAL, a
        // character cut by the end of the text, ends the loop.
        if (error == E2BIG || !out.PutHeldBack(_handle)) return len - out.room;
        if (error != EILSEQ || !out.PutReplacement()) return len - out.room;
        const size_t skipped = _OffendingLength(in, text_len);
        in += skipped;
        text_len -= skipped;
    }
    out.PutHeldBack(_handle);
    return len - out.room;
}

/// Bytes of the character at the start of `text` that could not be converted.
size_t CharsetConverter::_OffendingLength(const char* text, size_t text_len) const {
    const auto byte = [text](size_t i) { return static_cast<a_byte>(text[i]); };
    size_t length = std::min<size_t>(text_len, _from->char_lengths[byte(0)]);
    if (_from->id == CHARSET_UTF16) {
        const bool surrogate =
            text_len >= 4 && (byte(1) & 0xFC) == 0xD8 && (byte(3) & 0xFC) == 0xDC;
        return surrogate ? 4 : length;
    }
    if (_from->id != CHARSET_UTF8) return length;
    // A malformed sequence ends where the next byte continues nothing.
    size_t continued = 1;
    while (continued < length && (byte(continued) & 0xC0) == 0x80) ++continued;
    return continued;
}
