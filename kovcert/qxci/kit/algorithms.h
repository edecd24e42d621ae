#ifndef QUOREL_KOVCERT_QXCI_KIT_ALGORITHMS_H
#define QUOREL_KOVCERT_QXCI_KIT_ALGORITHMS_H

/// Algorithms by number and by name. A provider keeps those of one kind in an array of rows of its
/// own, each of which has
///     a_qxci_byte id;
///     const char* names[N];    the unused ones at the end are null
/// and whatever else the provider wants to know about it.

#include "kovcert/qxci/kit/names.h"
#include "kovcert/qxci/qxci.h"

namespace qxci {

template <class Row>
bool is_algorithm(const Row& row, a_qxci_byte id) {
    return row.id == id;
}

/// A null name is no algorithm.
template <class Row>
bool is_algorithm(const Row& row, const char* name) {
    if (name == nullptr) return false;
    for (const char* known : row.names) {
        if (known != nullptr && same_name(known, name)) return true;
    }
    return false;
}

/// The row of an algorithm, given by number or by name, or null.
template <class Row, size_t Rows, class Key>
const Row* find_algorithm(const Row (&rows)[Rows], Key key) {
    for (const Row& row : rows) {
        if (is_algorithm(row, key)) return &row;
    }
    return nullptr;
}

/// Entries ..._alg_func (Key: const char*) and ..._alg_id_func (Key: a_qxci_byte) of an environment
/// whose algorithms of that kind are the Rows.
template <const auto& Rows, class Key>
bool has_algorithm(QXCIEnvironmentH, Key key) {
    return find_algorithm(Rows, key) != nullptr;
}

/// The same for a kind of which there are none.
template <class Key>
bool has_no_algorithm(QXCIEnvironmentH, Key) {
    return false;
}

}  // namespace qxci

#endif
