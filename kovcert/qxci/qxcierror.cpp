#include "kovcert/qxci/qxcierror.h"

#include <cstdlib>
#include <cstring>

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/qxci/kit/parmlist.h"
#include "utils/etc/uttypes.h"
#include "utils/lang/utlangstring.h"

// ---- Mutexes ----

DBQXCIMutex::DBQXCIMutex(const a_qxci_callbacks& callbacks, void* global_context)
    : _callbacks(callbacks), _global_context(global_context) {
    if (_callbacks.mutex_create_cb != nullptr) {
        _handle = _callbacks.mutex_create_cb(_global_context);
    }
}

DBQXCIMutex::~DBQXCIMutex() {
    if (_handle != nullptr) _callbacks.mutex_destroy_cb(_global_context, _handle);
}

void DBQXCIMutex::get() {
    if (_handle != nullptr) _callbacks.mutex_get_cb(_global_context, _handle);
}

void DBQXCIMutex::give() {
    if (_handle != nullptr) _callbacks.mutex_give_cb(_global_context, _handle);
}

/// Holds a record's mutex for the length of a scope.
class DBQXCIError::Lock {
  public:
    explicit Lock(const DBQXCIError& error, bool wanted = true)
        : _mutex(wanted ? &error._Mutex() : nullptr) {
        if (_mutex != nullptr) _mutex->get();
    }
    ~Lock() {
        if (_mutex != nullptr) _mutex->give();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    DBQXCIBaseMutex* const _mutex;
};

// ---- Parameter lists ----

namespace {

/// A copy from the system's allocator; it ends at the first string that there is no memory for, and
/// is null when there is none for the list.
char** copy_parms(const char* const* list) {
    const size_t count = qxci::count_parms(list);
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
    const Lock lock(*this);
    const size_t count = qxci::count_parms(_err.parm_list);
    char* const copy = strdup(parm);
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
    const Lock lock(*this);
    if (index < 0 || static_cast<size_t>(index) >= qxci::count_parms(_err.parm_list))
        return nullptr;
    return _err.parm_list[index];
}

// ---- The whole record ----

void DBQXCIError::createMutex(DBQXCIEnvironment* env) {
    _mutex.reset(env->createMutex());
}

void DBQXCIError::Clear() {
    const Lock lock(*this);
    _freeParms();
    _err = {};
}

void DBQXCIError::_CloneFrom(const a_qxci_error* rec, bool lock) {
    const Lock held(*this, lock);
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
    const Lock lock(*this);
    if (other == nullptr) {
        _CloneFrom(static_cast<const a_qxci_error*>(nullptr), false);
        return;
    }
    DBQXCIError copy;
    {
        const Lock other_lock(*other);
        copy._CloneFrom(&other->_err, false);
    }
    _CloneFrom(&copy._err, false);
}

// ---- Texts ----

namespace {

enum a_text_argument { TEXT_TAKES_NOTHING, TEXT_TAKES_PARM, TEXT_TAKES_SYSTEM_CODE };

struct a_error_text {
    int id;
    a_text_argument argument;
};

/// For every code that has no text of its own.
constexpr a_error_text UnknownErrorText = {17587, TEXT_TAKES_SYSTEM_CODE};

/// By code.
constexpr a_error_text ErrorTexts[] = {
    {0, TEXT_TAKES_NOTHING},  // QxciErrOK
    {17590, TEXT_TAKES_NOTHING},
    {9845, TEXT_TAKES_PARM},
    {13974, TEXT_TAKES_SYSTEM_CODE},
    {13975, TEXT_TAKES_NOTHING},
    {9118, TEXT_TAKES_PARM},
    {14824, TEXT_TAKES_PARM},
    {11242, TEXT_TAKES_SYSTEM_CODE},
    {11237, TEXT_TAKES_SYSTEM_CODE},
    {13976, TEXT_TAKES_SYSTEM_CODE},
    // A reader need not know that the call would only have had to wait: as QxciErrIOError.
    {11237, TEXT_TAKES_SYSTEM_CODE},
    UnknownErrorText,  // QxciErrCantFindTLSDLL
    {13977, TEXT_TAKES_NOTHING},
    {13345, TEXT_TAKES_PARM},
    {13346, TEXT_TAKES_PARM},
    {13347, TEXT_TAKES_PARM},
    UnknownErrorText,  // QxciErrOpenSSLError
    {14003, TEXT_TAKES_NOTHING},
    {14215, TEXT_TAKES_NOTHING},
    {14216, TEXT_TAKES_NOTHING},
    {9123, TEXT_TAKES_NOTHING},
    {17440, TEXT_TAKES_NOTHING},
    {17441, TEXT_TAKES_NOTHING},
    {17446, TEXT_TAKES_PARM},
    {17591, TEXT_TAKES_SYSTEM_CODE},
    {14554, TEXT_TAKES_PARM},
    {13972, TEXT_TAKES_PARM},
    {17589, TEXT_TAKES_NOTHING},
    {17921, TEXT_TAKES_PARM},
    {17932, TEXT_TAKES_NOTHING},
    {17993, TEXT_TAKES_NOTHING},
    {18541, TEXT_TAKES_NOTHING},
    {14909, TEXT_TAKES_NOTHING},
    {14530, TEXT_TAKES_NOTHING},
    {25988, TEXT_TAKES_NOTHING},
    {26617, TEXT_TAKES_NOTHING},
    {26618, TEXT_TAKES_NOTHING},
    UnknownErrorText,  // QxciErrUnknown
};
static_assert(std::size(ErrorTexts) == QxciErrUnknown + 1);

}  // namespace

int DBQXCIError::_getTlsErrorId(bool* use_parm, bool* use_system_code) const {
    const a_error_text text =
        _err.code < std::size(ErrorTexts) ? ErrorTexts[_err.code] : UnknownErrorText;
    *use_parm = text.argument == TEXT_TAKES_PARM;
    *use_system_code = text.argument == TEXT_TAKES_SYSTEM_CODE;
    return text.id;
}

void DBQXCIError::GetString(UTLangStringBase* lang, char* buf, size_t len, const char* parm) const {
    if (buf == nullptr || len == 0 || lang == nullptr) return;
    buf[0] = '\0';
    const Lock lock(*this);
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
