#include "netlib/smtpbuffer.h"

#include <cstring>
#include <limits>

#include "utils/utmem/utwipe.h"

namespace {

size_t grown_capacity(size_t needed) {
    constexpr size_t largest = (std::numeric_limits<size_t>::max() - 3) / 3;
    return needed <= largest ? (needed * 3 + 3) / 2 : needed + 1;
}

}  // namespace

void Buffer::assign(const char* text) {
    _size = 0;
    _whole = true;
    if (_str != nullptr) _str[0] = '\0';
    append(text);
}

void Buffer::append(const char* text) {
    if (text == nullptr) return;
    const size_t added = std::strlen(text);
    const size_t needed = _size + added;
    if (_str == nullptr || needed + 1 > _capacity) {
        if (!reserve(_size == 0 ? needed + 1 : grown_capacity(needed))) {
            _whole = false;
            return;
        }
    }
    std::memcpy(_str + _size, text, added + 1);
    _size = needed;
}

void Buffer::append_all(std::initializer_list<const char*> texts) {
    for (const char* text : texts) append(text);
}

void Buffer::expect(size_t length) {
    if (length >= _capacity && !reserve(length + 1)) _whole = false;
}

a_bool Buffer::reserve(size_t capacity) {
    // Not ut_realloc, which ends the process where there is no memory; and the text that is left
    // behind may be a credential.
    auto* const grown = static_cast<char*>(ut_malloc(capacity));
    if (grown == nullptr) return false;
    grown[0] = '\0';
    if (_str != nullptr) {
        std::memcpy(grown, _str, _size + 1);
        ut_wipe(_str, _capacity);
        _heap.Free(_str);
    }
    _str = grown;
    _capacity = capacity;
    return true;
}

char* Buffer::release() {
    if (!_whole) _heap.Free(_str);
    char* const text = _whole ? _str : nullptr;
    _str = nullptr;
    _size = 0;
    _capacity = 0;
    _whole = true;
    return text;
}

void Buffer::wipe() {
    if (_str != nullptr) ut_wipe(_str, _capacity);
    _size = 0;
}
