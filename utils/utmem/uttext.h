#ifndef QUOREL_UTILS_UTMEM_UTTEXT_H
#define QUOREL_UTILS_UTMEM_UTTEXT_H

/// A text that its holder owns, or none.

#include <memory>

#include "utils/utmem/utmem.h"

struct a_ut_deleter {
    void operator()(char* text) const { ut_free(text); }
};

/// Terminated text from the allocation layer; null is not the same as empty.
using UTText = std::unique_ptr<char, a_ut_deleter>;

/// A copy of `text`; none for null.
inline UTText ut_text(const char* text) {
    return UTText(ut_strdup(text));
}

#endif
