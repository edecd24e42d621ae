#include "providers/openssl/errorrecord.h"

#include "providers/openssl/openssllibrary.h"

namespace {

/// A list of one parameter; null when there is no memory.
char** new_list(const OwnerMemory& memory, const char* parm) {
    char** const list = static_cast<char**>(memory.alloc(2 * sizeof(char*)));
    if (list == nullptr) return nullptr;
    list[0] = memory.strdup(parm);
    list[1] = nullptr;
    return list;
}

}  // namespace

void ErrorRecord::clear() {
    destroy(_memory, &_record);
    _record = {};
}

bool ErrorRecord::fail(a_dbqxci_error code, const char* parm, uint32_t system_code) {
    if (_record.code != QxciErrOK) return false;
    _record = {static_cast<uint32_t>(code), system_code, nullptr};
    if (parm != nullptr) _record.parm_list = new_list(_memory, parm);
    return false;
}

bool ErrorRecord::fail_openssl(a_dbqxci_error code, const char* parm) {
    const unsigned long newest = ERR_peek_last_error();
    while (const unsigned long reason = ERR_get_error()) {
        if (ERR_GET_REASON(reason) == ERR_R_MALLOC_FAILURE) return fail(QxciErrNoMemory);
    }
    return fail(code, parm, static_cast<uint32_t>(newest));
}

void ErrorRecord::give_to(a_qxci_error* to) {
    if (to == nullptr) return;
    *to = _record;
    _record = {};
}

void ErrorRecord::destroy(const OwnerMemory& memory, a_qxci_error* record) {
    if (record == nullptr || record->parm_list == nullptr) return;
    for (char** parm = record->parm_list; *parm != nullptr; ++parm) memory.free(*parm);
    memory.free(record->parm_list);
}
