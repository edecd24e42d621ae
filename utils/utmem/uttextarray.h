#ifndef QUOREL_UTILS_UTMEM_UTTEXTARRAY_H
#define QUOREL_UTILS_UTMEM_UTTEXTARRAY_H

/// A growing array of texts in the form of argv: ended by null, the array and each text a block of
/// its own from the allocation layer.

#include <cstddef>
#include <cstring>

#include "utils/utmem/utmem.h"

/// Frees such an array with its texts; null is ignored.
void ut_free_texts(char** texts);

/// Owns such an array. Used by one thread at a time.
class UTTextArray {
  public:
    UTTextArray() = default;
    UTTextArray(const UTTextArray&) = delete;
    UTTextArray& operator=(const UTTextArray&) = delete;
    ~UTTextArray() { clear(); }

    /// Appends a copy of the `length` characters at `text`, which hold no zero. False when there is
    /// no memory, with the array as it was: unlike ut_realloc(), no call here ends the process.
    bool add(const char* text, size_t length);
    bool add(const char* text) { return add(text, std::strlen(text)); }

    size_t count() const { return _count; }
    /// Of `index` up to count(), which gives null.
    const char* operator[](size_t index) const { return texts()[index]; }
    /// The array, never null; good until the next add(), clear() or release().
    const char* const* texts() const { return _texts != nullptr ? _texts : none; }
    const char* const* begin() const { return texts(); }
    const char* const* end() const { return texts() + _count; }

    void clear() { ut_free_texts(release()); }
    /// Hands the array over, to be freed with ut_free_texts(); null when nothing was ever added.
    char** release();

  private:
    bool _Reserve();

    static constexpr const char* none[] = {nullptr};

    char** _texts = nullptr;
    size_t _count = 0;
    size_t _capacity = 0;  // texts and the null behind them
};

#endif
