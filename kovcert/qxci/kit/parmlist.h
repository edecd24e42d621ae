#ifndef QUOREL_KOVCERT_QXCI_KIT_PARMLIST_H
#define QUOREL_KOVCERT_QXCI_KIT_PARMLIST_H

/// The parameter list of an error record: null, or an array of strings that ends with null, the
/// array and each string an allocation of its own.

#include "kovcert/qxci/kit/memory.h"

namespace qxci {

/// The strings in the list.
inline size_t count_parms(const char* const* list) {
    size_t count = 0;
    while (list != nullptr && list[count] != nullptr) ++count;
    return count;
}

/// Gives the strings and then the array back through `release(void*)`.
template <class Release>
void free_parms(char** list, Release release) {
    if (list == nullptr) return;
    for (char** parm = list; *parm != nullptr; ++parm) release(*parm);
    release(list);
}

/// A list of `count` copies, the first of what next() gives first. It ends before the first string
/// that there is no memory for; null when there is none for the array.
template <class Next>
char** make_parms(const Memory& memory, size_t count, Next next) {
    char** const list = static_cast<char**>(memory.alloc((count + 1) * sizeof(char*)));
    if (list == nullptr) return nullptr;
    std::memset(list, 0, (count + 1) * sizeof(char*));
    for (size_t i = 0; i < count; ++i) {
        list[i] = memory.copy(next());
        if (list[i] == nullptr) break;
    }
    return list;
}

/// A list of one copy; null for null.
inline char** make_parms(const Memory& memory, const char* parm) {
    return parm == nullptr ? nullptr : make_parms(memory, 1, [parm] { return parm; });
}

}  // namespace qxci

#endif
