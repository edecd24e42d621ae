#include "kovcert/qxci/qxcierror.h"

#include <cstdlib>
#include <cstring>

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/qxci/kit/parmlist.h"
#include "utils/etc/uttypes.h"
#include "utils/lang/utlangstring.h"
#include "utils/unix/utmutex.h"

// ---- Parameter lists ----

namespace {

/// A copy from the system's allocator; it ends at the first string that there is no memory for, and
/// is null when there is none for the list.
char** copy_parms(const char* const* list) {
    const size_t count = qxci::count_parms(list);
    // Of null pointers, so that the list ends wherever the copying ends.
    char** const copy = static_cast<char**>(std::calloc(count + 1, sizeof(char*)));
    for (size_t i = 0; copy != nullptr && i < count; ++i) {
        copy[i] = strdup(list[i]);
        if (copy[i] == nullptr) break;
    }
    return copy;
}

}  // namespace

void DBQXCIError::_freeParms() {
    qxci::free_parms(_err.parm_list, std::free);
    _err.parm_list = nullptr;
}

void DBQXCIError::AddParm(const char* parm) {
    if (parm == nullptr) return;
    const UTLock lock(_Mutex());
    const size_t count = qxci::count_parms(_err.parm_list);
    char* const copy = strdup(parm);  // before the list grows, which then cannot fail halfway
    if (copy == nullptr) return;
    void* const grown = std::realloc(_err.parm_list, (count + 2) * sizeof(char*));
    if (grown == nullptr) {
        std::free(copy);
        return;
    }
    _err.parm_list = static_cast<char**>(grown);
    _err.parm_list[count] = copy;
    _err.parm_list[count + 1] = nullptr;
}

const char* DBQXCIError::GetParm(int index) const {
    const UTLock lock(_Mutex());
    if (index < 0 || static_cast<size_t>(index) >= qxci::count_parms(_err.parm_list))
        return nullptr;
    return _err.parm_list[index];
}

// ---- The whole record ----

void DBQXCIError::createMutex(DBQXCIEnvironment* env) {
    _mutex.reset(env->createMutex());
}

void DBQXCIError::Clear() {
    const UTLock lock(_Mutex());
    _freeParms();
    _err = {};
}

void DBQXCIError::_CloneFrom(const a_qxci_error* rec, a_bool lock) {
    if (!lock) return _CopyFrom(rec);
    const UTLock locked(_Mutex());
    _CopyFrom(rec);
}

// The caller holds the mutex.
void DBQXCIError::_CopyFrom(const a_qxci_error* rec) {
    _freeParms();
    if (rec == nullptr) {
        _err = {QxciErrUnknown, 0, nullptr};
        return;
    }
    _err = {rec->code, rec->system_code, nullptr};
    if (rec->parm_list != nullptr) _err.parm_list = copy_parms(rec->parm_list);
}

void DBQXCIError::CloneFrom(const DBQXCIError* other) {
    if (other == this) return;
    const UTLock lock(_Mutex());
    if (other == nullptr) {
        _CopyFrom(nullptr);
        return;
    }
    // By way of a copy, so that the source's mutex is held no longer than reading it takes.
    DBQXCIError copy;
    {
        const UTLock other_lock(other->_Mutex());
        copy._CopyFrom(&other->_err);
    }
    _CopyFrom(&copy._err);
}

// ---- Texts ----

namespace {

enum a_text_argument { TEXT_TAKES_NOTHING, TEXT_TAKES_PARM, TEXT_TAKES_SYSTEM_CODE };

struct a_error_text {
    a_dbqxci_error code;
    int id;
    a_text_argument argument;
};

/// The text of the codes that have none of their own.
constexpr a_error_text unknown_error_text = {QxciErrUnknown, 17587, TEXT_TAKES_SYSTEM_CODE};

constexpr a_error_text error_texts[] = {
    {QxciErrOK, 0, TEXT_TAKES_NOTHING},
    {QxciErrNoMemory, 17590, TEXT_TAKES_NOTHING},
    {QxciErrCantFindCertFile, 9845, TEXT_TAKES_PARM},
    {QxciErrBadCertFile, 13974, TEXT_TAKES_SYSTEM_CODE},
    {QxciErrBadCertPassword, 13975, TEXT_TAKES_NOTHING},
    {QxciErrNoCertificates, 9118, TEXT_TAKES_PARM},
    {QxciErrCertExpired, 14824, TEXT_TAKES_PARM},
    {QxciErrInitError, 11242, TEXT_TAKES_SYSTEM_CODE},
    {QxciErrIOError, 11237, TEXT_TAKES_SYSTEM_CODE},
    {QxciErrHandshakeFailed, 13976, TEXT_TAKES_SYSTEM_CODE},
    // A reader need not know that the call would only have had to wait: as QxciErrIOError.
    {QxciErrWouldBlock, 11237, TEXT_TAKES_SYSTEM_CODE},
    {QxciErrConnectionClosed, 13977, TEXT_TAKES_NOTHING},
    {QxciErrBadCompany, 13345, TEXT_TAKES_PARM},
    {QxciErrBadUnit, 13346, TEXT_TAKES_PARM},
    {QxciErrBadCommonName, 13347, TEXT_TAKES_PARM},
    {QxciErrHandshakeTimedOut, 14003, TEXT_TAKES_NOTHING},
    {QxciErrMissingCertFile, 14215, TEXT_TAKES_NOTHING},
    {QxciErrMissingCertPassword, 14216, TEXT_TAKES_NOTHING},
    {QxciErrSpecifiedCertExpired, 9123, TEXT_TAKES_NOTHING},
    {QxciErrBadEncryptionAlgorithm, 17440, TEXT_TAKES_NOTHING},
    {QxciErrBadHashAlgorithm, 17441, TEXT_TAKES_NOTHING},
    {QxciErrBadOption, 17446, TEXT_TAKES_PARM},
    {QxciErrCerticomError, 17591, TEXT_TAKES_SYSTEM_CODE},
    {QxciErrFipsNotAvailable, 14554, TEXT_TAKES_PARM},
    {QxciErrMissingDll, 13972, TEXT_TAKES_PARM},
    {QxciErrDllMismatch, 17589, TEXT_TAKES_NOTHING},
    {QxciErrOptionError, 17921, TEXT_TAKES_PARM},
    {QxciErrKeyMissing, 17932, TEXT_TAKES_NOTHING},
    {QxciErrMissingIdentityFile, 17993, TEXT_TAKES_NOTHING},
    {QxciErrFipsDisabled, 18541, TEXT_TAKES_NOTHING},
    {QxciErrFipsNotAvailableOnPlatform, 14909, TEXT_TAKES_NOTHING},
    {QxciErrFipsNotSupportedByAlgorithm, 14530, TEXT_TAKES_NOTHING},
    {QxciErrBadCert, 25988, TEXT_TAKES_NOTHING},
    {QxciErrBadECCCert, 26617, TEXT_TAKES_NOTHING},
    {QxciErrBadRSACert, 26618, TEXT_TAKES_NOTHING},
};

const a_error_text& text_of(uint32 code) {
    for (const a_error_text& text : error_texts) {
        if (text.code == code) return text;
    }
    return unknown_error_text;
}

}  // namespace

int DBQXCIError::_getTlsErrorId(a_bool* use_parm, a_bool* use_system_code) const {
    const a_error_text& text = text_of(_err.code);
    *use_parm = text.argument == TEXT_TAKES_PARM;
    *use_system_code = text.argument == TEXT_TAKES_SYSTEM_CODE;
    return text.id;
}

void DBQXCIError::GetString(UTLangStringBase* lang, char* buf, size_t len, const char* parm) const {
    if (buf == nullptr || len == 0 || lang == nullptr) return;
    buf[0] = '\0';
    const UTLock lock(_Mutex());
    if (parm == nullptr && _err.parm_list != nullptr) parm = _err.parm_list[0];
    bool use_parm = false;
    bool use_system_code = false;
    const uint32 id = static_cast<uint32>(_getTlsErrorId(&use_parm, &use_system_code));
    if (id == 0) return;
    if (use_parm) {
        lang->FormatMiscLangStr(id, buf, len, parm);
    } else if (use_system_code) {
        lang->FormatMiscLangStr(id, buf, len, _err.system_code);
    } else {
        lang->FormatMiscLangStr(id, buf, len);
    }
}
