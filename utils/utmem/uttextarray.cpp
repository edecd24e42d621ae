#include "utils/utmem/uttextarray.h"

#include <algorithm>

void ut_free_texts(char** texts) {
    if (texts == nullptr) return;
    for (char** text = texts; *text != nullptr; ++text) ut_free(*text);
    ut_free(texts);
}

bool UTTextArray::add(const char* text, size_t length) {
    if (!_Reserve()) return false;
    auto* const copy = static_cast<char*>(ut_malloc(length + 1));
    if (copy == nullptr) return false;
    *std::copy_n(text, length, copy) = '\0';
    _texts[_count] = copy;
    ++_count;
    _texts[_count] = nullptr;
    return true;
}

char** UTTextArray::release() {
    char** const texts = _texts;
    _texts = nullptr;
    _count = 0;
    _capacity = 0;
    return texts;
}

// Room for one more text. Not with ut_realloc(), which ends the process when there is no memory.
bool UTTextArray::_Reserve() {
    if (_count + 1 < _capacity) return true;
    const size_t capacity = std::max<size_t>(4, 2 * _capacity);
    auto** const grown = static_cast<char**>(ut_malloc(capacity * sizeof(char*)));
    if (grown == nullptr) return false;
    std::copy_n(_texts, _count, grown);
    grown[_count] = nullptr;
    ut_free(_texts);
    _texts = grown;
    _capacity = capacity;
    return true;
}
