#ifndef QUOREL_KOVCERT_QXCI_DBQXCI_H
#define QUOREL_KOVCERT_QXCI_DBQXCI_H

/// The way to the crypto providers: which provider serves an algorithm, loading it when it is first
/// needed, and making objects of it.

#include <cstddef>
#include <optional>

#include "kovcert/qxci/dbqxciinterface.h"
#include "kovcert/qxci/dbqxciwrappers.h"
#include "kovcert/qxci/encryptlevel.h"
#include "kovcert/qxci/qxci.h"
#include "kovcert/qxci/qxcialgorithms.h"
#include "kovcert/qxci/qxcierror.h"
#include "kovcert/qxci/qxcioptions.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"
#include "utils/utmem/uttext.h"

struct a_qxci_source;

/// The environment of one owner. Init() comes before everything else, and its objects are deleted
/// before Fini(); dbqxciwrappers.h says what happens to one that is not.
///
/// Choice of provider: OTHER_IFACE under gUseStub; else FIPS_IFACE in FIPS mode, but for CRC32,
/// which is always STATIC_IFACE's; else what the tables of qxcialgorithms.h say. No FIPS provider
/// comes with the system, so FIPS mode and the algorithms of FIPS_IFACE fail with
/// QxciErrFipsNotAvailable unless somebody installs one.
///
/// Errors: `err` is never null. Creations clear it first and return null with the reason in it: an
/// algorithm that no table has (a null name included) is QxciErrBadEncryptionAlgorithm, for hashers
/// QxciErrBadHashAlgorithm; then come the loader's reasons (dbqxciinterface.h) and the provider's.
/// Without a successful Init() every creation fails with QxciErrUnknown. What they return is the
/// caller's.
///
/// Threads: used by one thread at a time; its objects may be deleted on any other.
class DBQXCIEnvironment : public c_utils_base {
  public:
    /// `cb` stays the owner's and outlives the environment; each callback gets `global_context`.
    DBQXCIEnvironment(const a_qxci_callbacks* cb, void* global_context);
    virtual ~DBQXCIEnvironment() { Fini(); }
    DBQXCIEnvironment(const DBQXCIEnvironment&) = delete;
    DBQXCIEnvironment& operator=(const DBQXCIEnvironment&) = delete;

    // The order of the virtual operations is a binary interface; new ones go to the end. `options`
    // and `key` are used during the call only.
    virtual DBQXCIPasswordHasher* CreatePasswordHasher(DBQXCIError* err);
    virtual DBQXCIPasswordHasher* CreatePasswordHasherWithID(a_qxci_byte id, DBQXCIError* err);
    virtual DBQXCIBlockHasher* CreateBlockHasher(const char* name, DBQXCIError* err);
    virtual DBQXCIBlockHasher* CreateBlockHasherWithID(a_qxci_byte id, DBQXCIError* err);
    virtual DBQXCIBlockEncrypter* CreateBlockEncrypter(const char* name, const a_qxci_byte* key,
                                                       size_t key_len, a_qxci_user_option* options,
                                                       DBQXCIError* err);
    virtual DBQXCIBlockEncrypter* CreateBlockEncrypterWithID(a_qxci_byte id, const a_qxci_byte* key,
                                                             size_t key_len,
                                                             a_qxci_user_option* options,
                                                             DBQXCIError* err);

    /// Kept: always the built-in provider's, in FIPS mode and under gUseStub alike.
    DBQXCISignatureHandler* CreateSignatureHandler(a_qxci_user_option* options, DBQXCIError* err);

    /// Loads FIPS_IFACE in FIPS mode, else STATIC_IFACE; the others wait until they are needed.
    /// `component` names the owner, may be null and is copied. `options` (null: none) stay the
    /// caller's until Fini(); "dll_name" among them is the library of OTHER_IFACE. QXCI_OK, or
    /// QXCI_ERROR with the reason in `err` and no slot set up.
    a_qxci_result Init(a_bool fips, const char* component, a_qxci_user_option* options,
                       DBQXCIError* err);

    /// Ends every provider's environment and closes the libraries. Init() may follow.
    void Fini();

    /// Whether the provider that an algorithm belongs to can be loaded and has it; a null name is
    /// none.
    a_bool IsStreamAlgorithmSupported(const char* name);
    a_bool IsStreamAlgorithmSupported(a_qxci_byte id);
    a_bool IsBlockEncrypterAlgorithmSupported(const char* name);
    a_bool IsBlockEncrypterAlgorithmSupported(a_qxci_byte id);
    a_bool IsBlockHasherAlgorithmSupported(const char* name);
    a_bool IsBlockHasherAlgorithmSupported(a_qxci_byte id);

    /// Whether a setting can be had: "tls", whose parameters say which, or the name of a stream
    /// algorithm. True: the level that it comes to is stored in `level`. False with the reason in
    /// `err`; without one when the provider merely does not have the algorithm.
    /// Kept: asks the provider that the table names even under gUseStub.
    a_bool ValidateStreamEncryption(c_encrypt_level& level, DBQXCIError* err);

    /// A stream for a setting, a name or a number. Its Init() is the caller's to call. `cb` may be
    /// null and is copied; its callbacks get `user_data`.
    DBQXCIStream* CreateStream(const a_qxci_stream_callbacks* cb, void* user_data,
                               const c_encrypt_level& level, DBQXCIError* err);
    DBQXCIStream* CreateStream(const a_qxci_stream_callbacks* cb, void* user_data, const char* name,
                               DBQXCIError* err);
    DBQXCIStream* CreateStreamWithID(const a_qxci_stream_callbacks* cb, void* user_data,
                                     a_qxci_byte id, DBQXCIError* err);

    // Whether the file of a provider is there; nothing is loaded.
    static a_bool IsECCAvailable();
    static a_bool IsRSAAvailable();
    static a_bool IsFIPSAvailable();  // and its companion
    static const char* GetECCDLLName() { return QXCI_ECC_DLL_NAME; }
    static const char* GetRSADLLName() { return QXCI_RSA_DLL_NAME; }
    static const char* GetFIPSDLLName() { return QXCI_FIPS_DLL_NAME; }

    /// From now on whatever would have to load FIPS_IFACE fails with QxciErrFipsDisabled.
    void disableFIPS() { _fips_disabled = true; }

    /// A new mutex over the owner's callbacks, the caller's; null when there is no memory.
    DBQXCIMutex* createMutex() const;

    /// Loads the provider of a slot, if it is not, and creates its environment. False with the
    /// reason in `err`: the loader's; what the provider says; QxciErrFipsDisabled;
    /// QxciErrBadEncryptionAlgorithm for an index that is no slot; QxciErrUnknown without Init().
    a_bool _loadInterface(_iface_index index, DBQXCIError* err);

    /// The provider of a slot, loaded or not, with a reference for the caller; null when there is
    /// none.
    DBQXCIInterface* _getInterface(_iface_index index) const;

    a_qxci_version GetQXCIVersion() const { return _vers; }

  private:
    a_bool _SetUp(const char* component, const char* dll_name);
    template <class Key>
    a_bool _IsSupported(const a_qxci_algorithm* table, Key key,
                        a_bool (*a_qxci_env_iface::*entry)(QXCIEnvironmentH, Key));
    a_qxci_source _SourceIn(std::optional<_iface_index> slot, a_dbqxci_error no_slot,
                            DBQXCIError* err);
    _iface_index _PasswordSlot() const;
    a_bool _CheckFips(DBQXCIError* err) const;
    DBQXCIInterface* _LoadIfNeeded(_iface_index index, DBQXCIError* err);
    a_bool _CreateProviderEnvironment(DBQXCIInterface& iface, DBQXCIError* err);

    [[maybe_unused]] UTHeap _heap;
    a_bool _fips_mode = false;
    a_qxci_user_option _fips_opt = {};  // "FIPS" = "YES", in FIPS mode
    a_bool _fips_disabled = false;
    UTText _dll_name_opt;  // null: none
    DBQXCIInterface* _interfaces[MAX_IFACE_INDEX + 1] = {};
    const a_qxci_callbacks* _qxci_callbacks;  // not owned
    void* _global_context;
    UTText _component;
    a_qxci_user_option* _options = nullptr;  // not owned
    a_qxci_version _vers = {1, 7, 0, 1};
};

#endif
