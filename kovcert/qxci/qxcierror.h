#ifndef QUOREL_KOVCERT_QXCI_QXCIERROR_H
#define QUOREL_KOVCERT_QXCI_QXCIERROR_H

/// The owner's copy of a failure that a provider, the loader or the TLS layer reports: a code, a
/// system code and parameters, and the text that tells a reader about it.

#include <cstddef>
#include <memory>

#include "kovcert/qxci/qxci.h"
#include "kovcert/qxci/qxcimutex.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"

class DBQXCIEnvironment;
class UTLangStringBase;

/// One failure, or none (code 0).
///
/// Memory: the parameters are copies from the system's allocator, whatever allocator the provider's
/// record uses. Without memory for a parameter the record goes without; the code always gets
/// through.
///
/// Threads: after createMutex() every operation but the accessors of the codes holds the record's
/// mutex, so that a provider's thread and the owner's may both use it; before that, one thread at a
/// time. The mutex is not recursive. A pointer from GetParm() is good until the record changes. Two
/// records must not be cloned from each other at the same time: CloneFrom() holds the lock of the
/// target while it waits for that of the source.
class DBQXCIError : public c_utils_base {
  public:
    DBQXCIError() = default;
    ~DBQXCIError() { _freeParms(); }
    DBQXCIError(const DBQXCIError&) = delete;
    DBQXCIError& operator=(const DBQXCIError&) = delete;

    /// Gives the record a mutex of `env`, in place of the one it had; without memory for one, none.
    void createMutex(DBQXCIEnvironment* env);

    /// Appends a copy of `parm`; null is ignored.
    void AddParm(const char* parm);

    /// The parameter at `index`, counted from 0; null when there are not so many.
    const char* GetParm(int index) const;

    /// Forgets everything: no error.
    void Clear();

    /// Makes this an independent copy; of null: QxciErrUnknown without a system code. A list that
    /// is there but empty stays so. A record cloned from itself stays as it is.
    void CloneFrom(const DBQXCIError* other);
    void CloneFrom(const a_qxci_error* rec) { _CloneFrom(rec, true); }
    /// With `lock` false the caller holds the record's mutex.
    void _CloneFrom(const a_qxci_error* rec, a_bool lock);

    /// Puts the text for the code into `buf`, at most `len` - 1 bytes, terminated; empty for no
    /// error, and when `lang` has no text. `parm` stands in the text where it names a parameter;
    /// null: the record's first. Does nothing when `lang` or `buf` is null or `len` is 0.
    void GetString(UTLangStringBase* lang, char* buf, size_t len, const char* parm) const;

    a_bool isError() const { return _err.code != QxciErrOK; }
    unsigned long getErrorCode() const { return _err.code; }
    unsigned long getSystemCode() const { return _err.system_code; }

    /// Changes the code alone, and returns it.
    a_dbqxci_error setErrorCode(a_dbqxci_error code) {
        _err.code = code;
        return code;
    }

    /// Makes this `code` with the parameters given, strings or null, and nothing else.
    template <class... Parms>
    void Set(a_dbqxci_error code, Parms... parms) {
        Clear();
        setErrorCode(code);
        (AddParm(parms), ...);
    }

    /// The identifier of the text for the code among the miscellaneous message texts, 0 for none,
    /// and what the text takes: a parameter, the system code (as unsigned int), or nothing.
    int _getTlsErrorId(a_bool* use_parm, a_bool* use_system_code) const;

  private:
    void _CopyFrom(const a_qxci_error* rec);
    DBQXCIBaseMutex& _Mutex() const { return _mutex != nullptr ? *_mutex : _no_mutex; }
    void _freeParms();

    [[maybe_unused]] UTHeap _heap;
    a_qxci_error _err = {};
    mutable DBQXCIBaseMutex _no_mutex;
    std::unique_ptr<DBQXCIBaseMutex> _mutex;  // null: _no_mutex
};

#endif
