#include "providers/openssl/ownermemory.h"

#include <cstring>

#include "providers/openssl/openssllibrary.h"

char* OwnerMemory::strdup(const char* text) const {
    const size_t size = std::strlen(text) + 1;
    void* const copy = alloc(size);
    if (copy != nullptr) std::memcpy(copy, text, size);
    return static_cast<char*>(copy);
}

void OwnerMemory::wipe_and_free(char* text) const {
    if (text == nullptr) return;
    OPENSSL_cleanse(text, std::strlen(text));
    free(text);
}
