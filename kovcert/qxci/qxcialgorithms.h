#ifndef QUOREL_KOVCERT_QXCI_QXCIALGORITHMS_H
#define QUOREL_KOVCERT_QXCI_QXCIALGORITHMS_H

/// Which slot serves which algorithm.

#include "kovcert/qxci/dbqxciinterface.h"
#include "kovcert/qxci/qxci.h"

struct a_qxci_algorithm {
    a_qxci_byte alg_id;
    const char* const* aliases;  // ends with null
    _iface_index iface;
};

/// The number in the row that ends a table.
inline constexpr a_qxci_byte QXCI_LAST_ALGORITHM = 255;

extern const a_qxci_algorithm StreamAlgorithms[];
extern const a_qxci_algorithm EncAlgorithms[];
extern const a_qxci_algorithm HashAlgorithms[];

/// The first row with the number, or with the name in any case; null when there is none. A null
/// name is in no table.
const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, a_qxci_byte id);
const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, const char* name);

#endif
