#ifndef QUOREL_UTILS_UTMEM_UTTEXT_H
#define QUOREL_UTILS_UTMEM_UTTEXT_H

/// A text that its holder owns, or none.

#include <cstring>
#include <memory>

#include "utils/utmem/utmem.h"
#include "utils/utmem/utwipe.h"

struct a_ut_deleter {
    void operator()(char* text) const { ut_free(text); }
};

/// Terminated text from the allocation layer; null is not the same as empty.
using UTText = std::unique_ptr<char, a_ut_deleter>;

struct a_ut_wiping_deleter {
    void operator()(char* text) const {
        ut_wipe(text, std::strlen(text));
        ut_free(text);
    }
};

/// The same for a secret, which is wiped before its memory goes back.
using UTSecretText = std::unique_ptr<char, a_ut_wiping_deleter>;

/// A copy of `text`; none for null, and none when there is no memory.
inline UTText ut_try_text(const char* text) {
    if (text == nullptr) return nullptr;
    return UTText(static_cast<char*>(ut_memdup(text, std::strlen(text) + 1)));
}

/// The same, but ends the process when there is no memory.
inline UTText ut_text(const char* text) {
    return UTText(ut_strdup(text));
}

#endif
