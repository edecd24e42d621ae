#ifndef QUOREL_KOVCERT_QXCI_QXCIALGORITHMS_H
#define QUOREL_KOVCERT_QXCI_QXCIALGORITHMS_H

/// Which slot serves which algorithm.

#include <atomic>
#include <optional>

#include "kovcert/qxci/dbqxciinterface.h"
#include "kovcert/qxci/qxci.h"
#include "utils/etc/uttypes.h"

/// The fields stand in the order in which a row reads.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
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

/// The first row with the number, or with the name without regard to case; null when there is none.
/// A null name is in no table.
const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, a_qxci_byte id);
const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, const char* name);

/// Set for the rest of the process by the first environment that is constructed while the variable
/// QX_USE_QXCI_STUB is in the process's environment: everything but signatures then comes from the
/// library of OTHER_IFACE, to try the system without real cryptography.
extern std::atomic<a_bool> gUseStub;

/// The slot that serves an algorithm: OTHER_IFACE under gUseStub; else FIPS_IFACE when `fips` is
/// set, whose provider knows what it has, but for CRC32, which is no cryptography; else the
/// table's. None for a null name, and when it comes to the table and that has no such row.
std::optional<_iface_index> qxci_choose_slot(const a_qxci_algorithm* table, a_qxci_byte id,
                                             a_bool fips);
std::optional<_iface_index> qxci_choose_slot(const a_qxci_algorithm* table, const char* name,
                                             a_bool fips);

#endif
