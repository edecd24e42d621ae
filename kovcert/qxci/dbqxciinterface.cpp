#include "kovcert/qxci/dbqxciinterface.h"

#include <array>

#include "kovcert/qxci/qxcierror.h"
#include "utils/unix/dllloader.h"
#include "utils/unix/locate.h"

/// The entry points of a provider; null where it has none.
struct a_qxci_entry_points {
    a_qxci_version (*version)();
    a_qxci_result (*env)(a_qxci_env_iface*);
    a_qxci_result (*error)(a_qxci_error_iface*);
    a_qxci_result (*stream)(a_qxci_stream_iface*);
    a_qxci_result (*conn)(a_qxci_conn_iface*);
    a_qxci_result (*pw_hash)(a_qxci_pw_hash_iface*);
    a_qxci_result (*hash)(a_qxci_hash_iface*);
    a_qxci_result (*enc)(a_qxci_enc_iface*);
    a_qxci_result (*sig)(a_qxci_sig_iface*);
};

namespace {

/// Those of the provider that is linked in, whichever that is: qxci.h declares them.
constexpr a_qxci_entry_points builtin_entry_points = {
    .version = nullptr,  // it has this system's own
    .env = QXCIGetEnvIface,
    .error = QXCIGetErrorIface,
    .stream = nullptr,
    .conn = nullptr,
    .pw_hash = QXCIGetPasswordHasherIface,
    .hash = QXCIGetBlockHasherIface,
    .enc = QXCIGetBlockEncrypterIface,
    .sig = QXCIGetSignatureHandlerIface,
};

template <class Function>
void resolve(void* dll, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(ut_dll_symbol(dll, name));
}

a_qxci_entry_points entry_points_of(void* dll) {
    a_qxci_entry_points entries;
    resolve(dll, "QXCIGetVersion", &entries.version);
    resolve(dll, "QXCIGetEnvIface", &entries.env);
    resolve(dll, "QXCIGetErrorIface", &entries.error);
    resolve(dll, "QXCIGetStreamIface", &entries.stream);
    resolve(dll, "QXCIGetStreamConnIface", &entries.conn);
    resolve(dll, "QXCIGetPasswordHasherIface", &entries.pw_hash);
    resolve(dll, "QXCIGetBlockHasherIface", &entries.hash);
    resolve(dll, "QXCIGetBlockEncrypterIface", &entries.enc);
    resolve(dll, "QXCIGetSignatureHandlerIface", &entries.sig);
    return entries;
}

bool has_required(const a_qxci_entry_points& entries) {
    return entries.version != nullptr && entries.env != nullptr && entries.error != nullptr;
}

bool is_supported(const a_qxci_version& version) {
    return version.api_major == QXCI_API_MAJOR && version.api_minor == QXCI_API_MINOR &&
           version.impl_id == QXCI_IMPL_ID;
}

const char* library_name(a_qxci_dll_type type, const char* dll_name) {
    switch (type) {
    case QXCI_DLL_ECC:
        return QXCI_ECC_DLL_NAME;
    case QXCI_DLL_RSA:
        return QXCI_RSA_DLL_NAME;
    case QXCI_DLL_FIPS:
        return QXCI_FIPS_DLL_NAME;
    default:
        return dll_name != nullptr ? dll_name : QXCI_STUB_DLL_NAME;
    }
}

/// Says in `err` why the library of that name was not loaded.
void report_failure(DBQXCIError* err, a_dbqxci_error failure, const char* name) {
    switch (failure) {
    case QxciErrFipsNotAvailable:
        return err->Set(failure, name);
    case QxciErrMissingDll:  // whose text may show the name in two places
        return err->Set(failure, name, name);
    default:
        return err->Set(failure);
    }
}

void* open_library(const char* name) {
    // Never by the bare name, which dlopen() would look for wherever the process's environment
    // says.
    std::array<char, LOCATE_MAX_PATH> path;
    if (!ut_locate_file(LOCATE_LIBRARY, name, path.data(), path.size())) return nullptr;
    return ut_dll_open(path.data());
}

template <class Table>
bool fill(a_qxci_result (*getter)(Table*), Table& table) {
    return getter == nullptr || getter(&table) == QXCI_OK;
}

}  // namespace

a_bool DBQXCIInterface::Load(a_qxci_dll_type type, const char* dll_name, DBQXCIError* err) {
    if (_loaded) return true;
    if (type == QXCI_DLL_BASIC) return _LoadBuiltin();
    const char* const name = library_name(type, dll_name);
    a_dbqxci_error failure = type == QXCI_DLL_FIPS ? QxciErrFipsNotAvailable : QxciErrMissingDll;
    if (_LoadLibrary(name, &failure)) return true;
    Unload();  // whatever part of it was done, so that a later Load() tries again
    report_failure(err, failure, name);
    return false;
}

a_bool DBQXCIInterface::_LoadBuiltin() {
    _loaded = true;  // even if it fails: there is nothing that could be better the next time
    _vers = {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
    _valid = _Fill(builtin_entry_points);
    return _valid;
}

a_bool DBQXCIInterface::_LoadLibrary(const char* name, a_dbqxci_error* failure) {
    _dll = open_library(name);
    if (_dll == nullptr) return false;
    _loaded = true;
    const a_qxci_entry_points entries = entry_points_of(_dll);
    if (!has_required(entries)) return false;
    _vers = entries.version();
    // Before any table is filled in: another version may have longer ones.
    if (!is_supported(_vers)) {
        *failure = QxciErrDllMismatch;
        return false;
    }
    _valid = _Fill(entries);
    return _valid;
}

a_bool DBQXCIInterface::_Fill(const a_qxci_entry_points& entries) {
    return fill(entries.env, _env_iface) && fill(entries.error, _error_iface) &&
           fill(entries.stream, _stream_iface) && fill(entries.conn, _conn_iface) &&
           fill(entries.pw_hash, _pw_hash_iface) && fill(entries.hash, _hash_iface) &&
           fill(entries.enc, _enc_iface) && fill(entries.sig, _sig_iface);
}

void DBQXCIInterface::Finish() {
    const UTLock lock(_ending);
    if (_qxci_env != nullptr && _env_iface.destroy_func != nullptr) {
        _env_iface.destroy_func(_qxci_env);
    }
    _qxci_env = nullptr;
    Unload();
}

a_bool DBQXCIInterface::Unload() {
    ut_dll_close(_dll);
    _loaded = false;
    _dll = nullptr;
    _valid = false;
    _clear();
    return true;
}

void DBQXCIInterface::_clear() {
    _env_iface = {};
    _error_iface = {};
    _stream_iface = {};
    _conn_iface = {};
    _pw_hash_iface = {};
    _hash_iface = {};
    _enc_iface = {};
    _sig_iface = {};
}
