#include "kovcert/qxci/dbqxci.h"

#include <array>
#include <cstdlib>
#include <new>

#include "kovcert/qxci/kit/parmlist.h"
#include "kovcert/qxci/qxcialgorithms.h"
#include "kovcert/qxci/qxcicreate.h"
#include "utils/unix/locate.h"

namespace {

constexpr const char* use_stub_variable = "QX_USE_QXCI_STUB";

a_qxci_dll_type dll_type_of(_iface_index slot) {
    switch (slot) {
    case RSA_IFACE:
        return QXCI_DLL_RSA;
    case ECC_IFACE:
        return QXCI_DLL_ECC;
    case FIPS_IFACE:
        return QXCI_DLL_FIPS;
    case OTHER_IFACE:
        return QXCI_DLL_OTHER;
    default:
        return QXCI_DLL_BASIC;
    }
}

bool is_located(const char* library) {
    std::array<char, LOCATE_MAX_PATH> path;
    return ut_locate_file(LOCATE_LIBRARY, library, path.data(), path.size());
}

}  // namespace

// ---- Life ----

DBQXCIEnvironment::DBQXCIEnvironment(const a_qxci_callbacks* cb, void* global_context)
    : _qxci_callbacks(cb), _global_context(global_context) {
    if (std::getenv(use_stub_variable) != nullptr) gUseStub = true;
}

a_qxci_result DBQXCIEnvironment::Init(a_bool fips, const char* component,
                                      a_qxci_user_option* options, DBQXCIError* err) {
    Fini();  // of an earlier Init()
    _fips_mode = fips;
    _options = options;
    if (fips) _fips_opt = {"FIPS", "YES", true, nullptr};
    if (!_SetUp(component, FindQXCIOption(options, "dll_name"))) {
        err->Set(QxciErrNoMemory);
    } else if (_loadInterface(fips ? FIPS_IFACE : STATIC_IFACE, err)) {
        return QXCI_OK;
    }
    Fini();
    return QXCI_ERROR;
}

// False when there is no memory for it all.
a_bool DBQXCIEnvironment::_SetUp(const char* component, const char* dll_name) {
    _component = ut_try_text(component);
    _dll_name_opt = ut_try_text(dll_name);
    if (component != nullptr && _component == nullptr) return false;
    if (dll_name != nullptr && _dll_name_opt == nullptr) return false;
    for (DBQXCIInterface*& slot : _interfaces) {
        slot = new (std::nothrow) DBQXCIInterface;
        if (slot == nullptr) return false;
    }
    return true;
}

void DBQXCIEnvironment::Fini() {
    // Late objects may hold more references, so an interface is finished before it is let go.
    for (DBQXCIInterface*& slot : _interfaces) {
        if (slot == nullptr) continue;
        slot->Finish();
        slot->Release();
        slot = nullptr;
    }
}

DBQXCIMutex* DBQXCIEnvironment::createMutex() const {
    return new (std::nothrow) DBQXCIMutex(*_qxci_callbacks, _global_context);
}

// ---- Providers ----

a_bool DBQXCIEnvironment::IsECCAvailable() {
    return is_located(QXCI_ECC_DLL_NAME);
}

a_bool DBQXCIEnvironment::IsRSAAvailable() {
    return is_located(QXCI_RSA_DLL_NAME);
}

a_bool DBQXCIEnvironment::IsFIPSAvailable() {
    return is_located(QXCI_FIPS_DLL_NAME) && is_located(QXCI_FIPS_COMPANION_DLL_NAME);
}

a_bool DBQXCIEnvironment::_loadInterface(_iface_index index, DBQXCIError* err) {
    if (index > MAX_IFACE_INDEX) {
        err->Set(QxciErrBadEncryptionAlgorithm);
        return false;
    }
    DBQXCIInterface* const iface = _interfaces[index];
    if (iface == nullptr) {
        err->Set(QxciErrUnknown);
        return false;
    }
    // Before the look at what is loaded: FIPS may be disabled after its provider came.
    if (index == FIPS_IFACE && _fips_disabled) {
        err->Set(QxciErrFipsDisabled);
        return false;
    }
    if (iface->IsLoaded()) return true;
    if (!iface->Load(dll_type_of(index), _dll_name_opt.get(), err)) return false;
    return _CreateProviderEnvironment(*iface, err);
}

a_bool DBQXCIEnvironment::_CreateProviderEnvironment(DBQXCIInterface& iface, DBQXCIError* err) {
    if (iface._env_iface.create_func == nullptr) {
        iface.Unload();
        err->Set(QxciErrUnknown);
        return false;
    }
    a_qxci_user_option* options = _options;
    // At the head, where it wins over what the owner says about it.
    if (_fips_mode) {
        _fips_opt.next = _options;
        options = &_fips_opt;
    }
    a_qxci_error error = {};
    iface._qxci_env = iface._env_iface.create_func(_qxci_callbacks, _global_context, options,
                                                   _component.get(), &error);
    if (iface._qxci_env != nullptr) return true;
    qxci_report(error, err);
    // No environment of the provider goes with this record, so it goes back by hand.
    qxci::free_parms(error.parm_list,
                     [this](void* memory) { _qxci_callbacks->free_cb(_global_context, memory); });
    iface.Unload();
    return false;
}

DBQXCIInterface* DBQXCIEnvironment::_getInterface(_iface_index index) const {
    if (index > MAX_IFACE_INDEX || _interfaces[index] == nullptr) return nullptr;
    // For the caller, whose object may outlive the environment.
    _interfaces[index]->AddRef();
    return _interfaces[index];
}

DBQXCIInterface* DBQXCIEnvironment::_LoadIfNeeded(_iface_index index, DBQXCIError* err) {
    DBQXCIInterface* const iface = _interfaces[index];
    const bool loaded = iface != nullptr && iface->IsLoaded();
    return loaded || _loadInterface(index, err) ? iface : nullptr;
}

// ---- What is there ----

template <class Key>
a_bool DBQXCIEnvironment::_IsSupported(const a_qxci_algorithm* table, Key key,
                                       a_bool (*a_qxci_env_iface::*entry)(QXCIEnvironmentH, Key)) {
    const std::optional<_iface_index> slot = qxci_choose_slot(table, key, _fips_mode);
    if (!slot.has_value()) return false;
    DBQXCIError ignored;  // a provider that cannot be had supports nothing
    const DBQXCIInterface* const iface = _LoadIfNeeded(*slot, &ignored);
    if (iface == nullptr || !iface->IsValid()) return false;
    const auto ask = iface->_env_iface.*entry;
    return ask != nullptr && ask(iface->_qxci_env, key);
}

a_bool DBQXCIEnvironment::IsStreamAlgorithmSupported(const char* name) {
    return _IsSupported(StreamAlgorithms, name, &a_qxci_env_iface::stream_alg_func);
}

a_bool DBQXCIEnvironment::IsStreamAlgorithmSupported(a_qxci_byte id) {
    return _IsSupported(StreamAlgorithms, id, &a_qxci_env_iface::stream_alg_id_func);
}

a_bool DBQXCIEnvironment::IsBlockEncrypterAlgorithmSupported(const char* name) {
    return _IsSupported(EncAlgorithms, name, &a_qxci_env_iface::block_enc_alg_func);
}

a_bool DBQXCIEnvironment::IsBlockEncrypterAlgorithmSupported(a_qxci_byte id) {
    return _IsSupported(EncAlgorithms, id, &a_qxci_env_iface::block_enc_alg_id_func);
}

a_bool DBQXCIEnvironment::IsBlockHasherAlgorithmSupported(const char* name) {
    return _IsSupported(HashAlgorithms, name, &a_qxci_env_iface::block_hash_alg_func);
}

a_bool DBQXCIEnvironment::IsBlockHasherAlgorithmSupported(a_qxci_byte id) {
    return _IsSupported(HashAlgorithms, id, &a_qxci_env_iface::block_hash_alg_id_func);
}
