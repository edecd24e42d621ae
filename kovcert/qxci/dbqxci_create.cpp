// What the environment makes of its providers: streams, encrypters, hashers, signature handlers.

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/qxci/qxcicreate.h"
#include "utils/etc/utascii.h"

// ---- Objects ----

/// The provider in `slot`, loaded; without one, the reason is in `err`: `no_slot` when there is no
/// such slot.
a_qxci_source DBQXCIEnvironment::_SourceIn(std::optional<_iface_index> slot, a_dbqxci_error no_slot,
                                           DBQXCIError* err) {
    err->Clear();
    if (!slot.has_value()) {
        err->setErrorCode(no_slot);
        return {};
    }
    // Only now that it is wanted: a provider that nobody asks for is never loaded.
    if (!_loadInterface(*slot, err)) return {};
    return {this, _interfaces[*slot], *slot};
}

_iface_index DBQXCIEnvironment::_PasswordSlot() const {
    if (gUseStub) return OTHER_IFACE;
    return _fips_mode ? FIPS_IFACE : STATIC_IFACE;
}

DBQXCIPasswordHasher* DBQXCIEnvironment::CreatePasswordHasher(DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(_PasswordSlot(), QxciErrBadHashAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIPasswordHasher>(from, from.iface->_pw_hash_iface.create_func, err,
                                             from.iface->_qxci_env);
}

DBQXCIPasswordHasher* DBQXCIEnvironment::CreatePasswordHasherWithID(a_qxci_byte id,
                                                                    DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(_PasswordSlot(), QxciErrBadHashAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIPasswordHasher>(from, from.iface->_pw_hash_iface.create_with_id_func,
                                             err, from.iface->_qxci_env, id);
}

DBQXCIBlockHasher* DBQXCIEnvironment::CreateBlockHasher(const char* name, DBQXCIError* err) {
    const a_qxci_source from =
        _SourceIn(qxci_choose_slot(HashAlgorithms, name, _fips_mode), QxciErrBadHashAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIBlockHasher>(from, from.iface->_hash_iface.create_func, err,
                                          from.iface->_qxci_env, name);
}

DBQXCIBlockHasher* DBQXCIEnvironment::CreateBlockHasherWithID(a_qxci_byte id, DBQXCIError* err) {
    const a_qxci_source from =
        _SourceIn(qxci_choose_slot(HashAlgorithms, id, _fips_mode), QxciErrBadHashAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIBlockHasher>(from, from.iface->_hash_iface.create_with_id_func, err,
                                          from.iface->_qxci_env, id);
}

DBQXCIBlockEncrypter*
DBQXCIEnvironment::CreateBlockEncrypter(const char* name, const a_qxci_byte* key, size_t key_len,
                                        a_qxci_user_option* options, DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(qxci_choose_slot(EncAlgorithms, name, _fips_mode),
                                         QxciErrBadEncryptionAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIBlockEncrypter>(from, from.iface->_enc_iface.create_func, err,
                                             from.iface->_qxci_env, name, key, key_len, options);
}

DBQXCIBlockEncrypter* DBQXCIEnvironment::CreateBlockEncrypterWithID(a_qxci_byte id,
                                                                    const a_qxci_byte* key,
                                                                    size_t key_len,
                                                                    a_qxci_user_option* options,
                                                                    DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(qxci_choose_slot(EncAlgorithms, id, _fips_mode),
                                         QxciErrBadEncryptionAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIBlockEncrypter>(from, from.iface->_enc_iface.create_with_id_func, err,
                                             from.iface->_qxci_env, id, key, key_len, options);
}

DBQXCISignatureHandler* DBQXCIEnvironment::CreateSignatureHandler(a_qxci_user_option* options,
                                                                  DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(STATIC_IFACE, QxciErrUnknown, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCISignatureHandler>(from, from.iface->_sig_iface.create_func, err,
                                               from.iface->_qxci_env, options);
}

// ---- Streams ----

namespace {

/// The stream that a setting asks for.
struct a_wanted_stream {
    const char* name = nullptr;  // the setting's, or in `tls`
    bool fips = false;
    a_tls_parms tls;

    bool Read(const c_encrypt_level& level, DBQXCIError* err) {
        name = level.get_algorithm();
        if (name == nullptr || !ut_equal_nocase(name, "tls")) return true;
        if (!tls.Parse(level.get_parms(), err)) return false;
        name = tls.tls_type.get();
        fips = tls.fips;
        return true;
    }
};

a_encrypt_level level_of(_iface_index slot) {
    switch (slot) {
    case ECC_IFACE:
        return ENCRYPT_ECC_TLS;
    case FIPS_IFACE:
        return ENCRYPT_RSA_TLS_FIPS;
    default:
        return ENCRYPT_RSA_TLS;
    }
}

}  // namespace

DBQXCIStream* DBQXCIEnvironment::CreateStream(const a_qxci_stream_callbacks* cb, void* user_data,
                                              const c_encrypt_level& level, DBQXCIError* err) {
    err->Clear();
    a_wanted_stream wanted;
    if (!wanted.Read(level, err)) return nullptr;
    const a_qxci_source from =
        _SourceIn(qxci_choose_slot(StreamAlgorithms, wanted.name, _fips_mode || wanted.fips),
                  QxciErrBadEncryptionAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIStream>(from, from.iface->_stream_iface.create_func, err,
                                     from.iface->_qxci_env, cb, user_data, wanted.name);
}

DBQXCIStream* DBQXCIEnvironment::CreateStream(const a_qxci_stream_callbacks* cb, void* user_data,
                                              const char* name, DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(qxci_choose_slot(StreamAlgorithms, name, _fips_mode),
                                         QxciErrBadEncryptionAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIStream>(from, from.iface->_stream_iface.create_func, err,
                                     from.iface->_qxci_env, cb, user_data, name);
}

DBQXCIStream* DBQXCIEnvironment::CreateStreamWithID(const a_qxci_stream_callbacks* cb,
                                                    void* user_data, a_qxci_byte id,
                                                    DBQXCIError* err) {
    const a_qxci_source from = _SourceIn(qxci_choose_slot(StreamAlgorithms, id, _fips_mode),
                                         QxciErrBadEncryptionAlgorithm, err);
    if (from.iface == nullptr) return nullptr;
    return qxci_create<DBQXCIStream>(from, from.iface->_stream_iface.create_with_id_func, err,
                                     from.iface->_qxci_env, cb, user_data, id);
}

a_bool DBQXCIEnvironment::_CheckFips(DBQXCIError* err) const {
    if (_fips_disabled) {
        err->Set(QxciErrFipsDisabled);
        return false;
    }
    if (!IsFIPSAvailable()) {
        err->Set(QxciErrFipsNotAvailable, QXCI_FIPS_DLL_NAME);
        return false;
    }
    return true;
}

a_bool DBQXCIEnvironment::ValidateStreamEncryption(c_encrypt_level& level, DBQXCIError* err) {
    err->Clear();
    a_wanted_stream wanted;
    if (!wanted.Read(level, err)) return false;
    const bool fips = _fips_mode || wanted.fips;
    // Not qxci_choose_slot(), which heeds gUseStub and takes any name for a FIPS provider's.
    const a_qxci_algorithm* const row = qxci_find_algorithm(StreamAlgorithms, wanted.name);
    if (row == nullptr) {
        err->Set(QxciErrBadEncryptionAlgorithm);
        return false;
    }
    if (row->iface == ECC_IFACE && fips) {
        err->Set(QxciErrFipsNotSupportedByAlgorithm);
        return false;
    }
    if (fips && !_CheckFips(err)) return false;
    const _iface_index slot = fips ? FIPS_IFACE : row->iface;
    const DBQXCIInterface* const iface = _LoadIfNeeded(slot, err);
    if (iface == nullptr || !iface->IsValid()) return false;
    const auto ask = iface->_env_iface.stream_alg_func;
    if (ask == nullptr || !ask(iface->_qxci_env, wanted.name)) return false;
    level.set_level(level_of(slot));
    return true;
}
