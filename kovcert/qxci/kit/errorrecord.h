#ifndef QUOREL_KOVCERT_QXCI_KIT_ERRORRECORD_H
#define QUOREL_KOVCERT_QXCI_KIT_ERRORRECORD_H

#include "kovcert/qxci/kit/parmlist.h"

namespace qxci {

/// Frees the parameters of a record, in the way of a_qxci_error_iface: the fields are left as they
/// are, and a null record is ignored.
inline void free_error(const Memory& memory, const a_qxci_error* record) {
    if (record == nullptr) return;
    free_parms(record->parm_list, [&memory](void* parm) { memory.free(parm); });
}

/// What went wrong in an operation. The first failure wins, so that whoever notices that another
/// has failed may add a reason of its own without looking. When there is no memory for a parameter,
/// the record goes without: the code always gets through.
class ErrorRecord {
  public:
    /// `memory` lives longer.
    explicit ErrorRecord(const Memory& memory) : _memory(memory) {}
    ErrorRecord(const ErrorRecord&) = delete;
    ErrorRecord& operator=(const ErrorRecord&) = delete;
    ~ErrorRecord() { free_error(_memory, &_record); }

    const Memory& memory() const { return _memory; }
    const a_qxci_error* get() const { return &_record; }

    void clear() {
        free_error(_memory, &_record);
        _record = {};
    }

    /// Records a failure; false, for the caller to return.
    bool fail(a_dbqxci_error code, const char* parm = nullptr, uint32_t system_code = 0) {
        return take({static_cast<uint32_t>(code), system_code, make_parms(_memory, parm)});
    }

    /// The same with a record whose list was made by make_parms() of this memory, and now belongs
    /// here.
    bool take(const a_qxci_error& record) {
        if (_record.code != QxciErrOK) {
            free_error(_memory, &record);
        } else {
            _record = record;
        }
        return false;
    }

    /// Hands the record, with its parameters, over to one of the owner's, which may be null.
    void give_to(a_qxci_error* to) {
        if (to == nullptr) return;
        *to = _record;
        _record = {};
    }

  private:
    const Memory& _memory;
    a_qxci_error _record = {};
};

}  // namespace qxci

#endif
