#ifndef QUOREL_KOVCERT_QXCI_QXCIPARMS_H
#define QUOREL_KOVCERT_QXCI_QXCIPARMS_H

/// The parameter list of an error record: null, or an array of strings that ends with null, the
/// array and each string an allocation of its own.

#include <cstddef>

/// The strings in the list.
inline size_t qxci_count_parms(const char* const* list) {
    size_t count = 0;
    while (list != nullptr && list[count] != nullptr) ++count;
    return count;
}

/// Gives the strings and then the array back through `release(void*)`.
template <class Release>
void qxci_free_parms(char** list, Release release) {
    if (list == nullptr) return;
    for (char** parm = list; *parm != nullptr; ++parm) release(*parm);
    release(list);
}

#endif
